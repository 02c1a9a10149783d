// The engine of the I/Q mode: a continuous stream of complex samples tuned to
// the configured centre, filtered, decimated and calibrated (I^2 + Q^2 of a
// continuous tone is its power in mW), with no gap between blocks for as
// long as the mode lasts.
//
// Thread: one, free-running. It reads the stream channel without pause, four
// reads of 4096 samples a block of 16384, mixes away the residual the
// synthesizer leaves (one tone whose phase runs on from block to block),
// decimates, turns the mirrored bands of the 12.4 GHz family over, stamps the
// block with the wall clock and writes it into the circular buffer, then
// signals the exchange. A failed read is marked in the exchange; the stream
// goes on with what the block held, a get call waiting returns at once, and
// every later get call returns -11 with what is buffered. A block read from
// a clipping converter (an overload, or the samples of a stream that lost a
// byte and lies out of step) is stored as such, and the get call that hands
// any of it out returns 2, however long it lay in the buffer. The acquisition
// never waits for the application: a reader that falls behind loses the
// buffered samples and is told by the loss flag.
//
// The caller meets the thread in the circular buffer (its lock and atomics)
// and in the exchange (signal, error mark). Stop: the exchange is shut, so a
// caller waiting for samples returns -6; the thread ends after the block
// under way (a read at most: the reads look at `running` between them) and
// stops the stream.
#ifndef QOR_ENGINE_IQ_H
#define QOR_ENGINE_IQ_H

#include <cstdint>

#include "iq_circular_buffer.h"
#include "ipps.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

class IQEngine : public SweepEngine {
public:
    IQEngine(Settings* settings, AnalyzerLink* link, CalibrationStore* calibration, SweepInfo* sweepInfo);

    // No sweep to give in this mode.
    qorStatus GetSweep64(double*, double*) override { return qorWrongModeErr; }
    qorStatus GetSweep32(float*, float*) override { return qorWrongModeErr; }
    qorStatus GetPartialSweep64(double*, double*, int*, int*) override { return qorWrongModeErr; }
    qorStatus GetPartialSweep32(float*, float*, int*, int*) override { return qorWrongModeErr; }
    // Waits until `packet.iqCount` samples are delivered; fills the packet's
    // remaining count, loss flag and the stamp of its first sample.
    qorStatus GetIQ(IQPacket& packet) override;

private:
    static constexpr int kBlockSamples = 16384;
    static constexpr int kBufferBlocks = 32;

    void Run();
    // The level for the reference level or as configured, and the table of
    // corrections the decimator folds in.
    void ChooseLevel(double* correctionTable);
    void FillCorrections(double* table);

    DeviceCorr* corr;
    const int decimation;
    const int blockLength;  // samples of an output block
    const double centerHz;  // on the scale divided by the timebase factor
    const bool highIf;
    bool inverted = false;      // the thread's, from the tuning
    double mixFrequency = 0.0;  // the thread's: the residual, normalised
    IQCircularBuffer iqBuffer;
    // The thread's own.
    smart_array<Ipp64fc> block;      // 16384 samples as they are read, then decimated in place
    smart_array<Ipp64fc> mixTone;    // 16384 samples of the residual's mix
    smart_array<Ipp32fc> floatBlock; // the block as the buffer takes it
};

}  // namespace qor

#endif
