// The engine of the real-time mode: overlapping FFTs on the gap-free stream
// of one fixed tuning (up to 250 kHz of span cut out of a single FFT),
// condensed per frame time into a sweep, a persistence image and an alpha
// image (frame_imaging.h), delivered through qorGetRealTimeFrame only.
//
// Threads, both time-critical, in a pipeline:
// - acquisition (the base's first thread): chooses the level, fills the
//   corrections of the span bins, tunes (stream_tuning.h), then reads blocks
//   of 4096 samples without pause, mixes the synthesizer's residual away (a
//   tone whose phase runs on across blocks), turns a mirrored band over and
//   stores the block in the sample ring. A failed read is marked for good;
//   the block goes on with what it held.
// - processing: an FFT every `hop` samples while more than an FFT's length
//   is stored; each spectrum goes to the frame imager, marked when a block
//   under its window came from a clipped read, and so is its frame: the get
//   that hands that frame out returns 2, however far it lags the reads.
// The ring is 64 blocks of 4096 samples whose first 8 repeat after the end,
// so that any window starting in the ring lies contiguous in memory. The two
// threads share only the ring and `samplesAvailable` (sequentially
// consistent): the writer stores a block before it adds it to the count, the
// reader transforms only what the count holds and takes its hop off after.
// A processing thread that falls behind the stream finds the ring full: the
// acquisition thread then drops blocks rather than overwrite samples not yet
// transformed, and the spectra jump over them.
//
// The caller meets only the processing thread, in the frame imager's
// hand-off. Stop: `running` cleared, the data event and the hand-off shut (a
// caller waiting for a frame returns -6); the processing thread ends at its
// next test, the acquisition thread after the read under way, and stops the
// stream.
#ifndef QOR_ENGINE_REALTIME_IMAGE_H
#define QOR_ENGINE_REALTIME_IMAGE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "frame_imaging.h"
#include "ipps.h"
#include "os.h"
#include "realtime_window.h"
#include "smart_array.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

// What the settings make of the spectra and frames, before anything is built.
struct RealTimeGeometry {
    int32_t fftSize = 0;
    int32_t hop = 0;              // samples from one FFT to the next
    int32_t spectraPerFrame = 0;
    int32_t spanBins = 0;
    int32_t firstBin = 0;         // of the span in the spectrum, 0 Hz at fftSize / 2
    double binSize = 0.0;
    double poi = 0.0;             // seconds: the shortest signal sure to lie whole in one FFT
};

RealTimeGeometry RealTimeGeometryFor(int32_t fftSize, double overlap, int32_t frameRate, double span);

class RealTimeImageEngine : public SweepEngine {
public:
    RealTimeImageEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                        SweepInfo* sweepInfo);

    // The sweep of this mode comes only with its frame.
    qorStatus GetSweep64(double*, double*) override { return qorWrongModeErr; }
    qorStatus GetSweep32(float*, float*) override { return qorWrongModeErr; }
    qorStatus GetPartialSweep64(double*, double*, int*, int*) override { return qorWrongModeErr; }
    qorStatus GetPartialSweep32(float*, float*, int*, int*) override { return qorWrongModeErr; }
    qorStatus GetRealTimeFrame(float* sweep, float* frame, float* alphaFrame) override;

protected:
    void WakeThreads() override;

private:
    static constexpr int kBlock = 4096;
    static constexpr int kRingBlocks = 64;
    static constexpr int kRepeatedBlocks = 8;
    static constexpr int32_t kRingSamples = kRingBlocks * kBlock;

    void Acquire();
    void Process();
    void FillCorrections();
    void StoreBlock(const Ipp64fc* block);

    DeviceCorr* corr;
    const RealTimeGeometry geometry;
    const double centerHz;  // on the scale divided by the timebase factor
    RealTimeWindow window;
    smart_array<Ipp64fc> sampleRing;
    smart_array<double> correctionsD;  // dB of each span bin
    smart_array<Ipp32f> corrections;
    smart_array<Ipp32f> voltageRatios;
    std::unique_ptr<FrameImager> imager;
    std::atomic<int32_t> samplesAvailable{0};
    os::AutoResetEvent dataEvent;
    // Per ring block, beside its samples: read from a clipping converter.
    bool blockClipped[kRingBlocks + kRepeatedBlocks] = {};
    // The acquisition thread's.
    int32_t writeBlock = 0;
    double residualHz = 0.0;
    double ifOffsetBase = 0.0;  // the span's configured start from its true first bin
    bool inverted = false;
    double mixFrequency = 0.0;
    double mixPhase = 0.0;
    smart_array<Ipp64fc> mixTone;  // kBlock
    // The processing thread's.
    int32_t readPosition = 0;
    smart_array<Ipp32f> power;
};

}  // namespace qor

#endif
