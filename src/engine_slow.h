// The narrow-span sweep (span below 201 kHz): the whole span fits into the
// band of one sampled IF, so the LO stands still and one capture at one
// tuning gives the whole trace; the trace bins are the FFT's own. With image
// rejection a second capture runs at another IF or another fractional
// modulus (pass B), and the merge keeps the lower reading of each bin.
//
// Thread: one, free-running, on the exchange's kFreeRunningSweeps policy
// (result_exchange.h). It measures sweep after sweep and writes each into
// the traces; a late caller gets the latest finished trace at once. A block
// capture torn on the way is drained and taken again; one that fails again,
// brings nothing or meets a unit that refuses the calls is marked in the
// exchange and ends the loop; the traces keep the last complete sweep. The spectra and corrections belong to the thread
// alone. Stop: the thread ends after the capture under way; Rest restores
// the sample clock and the synthesizer and forgets the first-LO path.
#ifndef QOR_ENGINE_SLOW_H
#define QOR_ENGINE_SLOW_H

#include <cstdint>

#include "ipps.h"
#include "os.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

struct LoTuning;
class DeviceCorr;

class SlowSweepEngine : public SweepEngine {
public:
    SlowSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                    SpectrumCore* core, SweepInfo* sweepInfo);

private:
    void Rest() override;
    void Run();
    void PrepareLevel();
    void ComputeCorrections();
    void ConfigurePass(const LoTuning& record, uint8_t ifSelect, int atten, int gain);
    bool Capture(int timeoutMs);
    void MergeIntoTraces(double* minTrace, double* maxTrace);

    DeviceCorr* corr;
    int32_t fftSize;
    int32_t sweepLength = 0;
    int32_t sampleCount;
    smart_array<Ipp64fc> samples;  // sampleCount + 4096: room to round a streamed capture up
    smart_array<Ipp64fc> toneA, toneB;  // each pass's digital shift times the window (fftSize)
    smart_array<double> minA, maxA, minB, maxB;
    smart_array<double> corrA, corrB;
    uint8_t ifSelectA = 0;  // path filter: 0 high IF, 1 low IF
    uint8_t ifSelectB = 1;
    double residualA = 0.0, residualB = 0.0;  // what the synthesizer leaves over, Hz
    double offsetA = 0.0, offsetB = 0.0;      // digital shift of each pass, Hz
    double center, start;                     // the settings', divided by the timebase factor
    double binSize = 0.0;
    int32_t binOffset = 0;  // index of trace bin 0 in a spectrum
    int32_t altClock = 0;   // the alternate sample clock is in use
    double sampleRate;
    int32_t band;
    bool conjugateBase;
    bool conjugateA = false, conjugateB = false;  // each pass's spectrum is conjugated after its shift
};

}  // namespace qor

#endif
