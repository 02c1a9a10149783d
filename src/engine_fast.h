// The hopped sweep of wide spans: the unit steps its LO by itself in steps
// of 200 kHz, one 512-sample block per step, after one sweep window command
// per segment of 107 steps. Of each block the last 256 samples make one
// short spectrum, whose central 200 kHz (binsPerStep bins) land in the
// trace. LO index n is an LO of n x 200 kHz; after the 5555.56 Hz mix a bin
// offset y from the middle of the spectrum is the RF n x 200 kHz - 10.7 MHz + y.
//
// Image rejection pairs each block with the one taken 107 steps (21.4 MHz)
// lower, conjugated: it shows the same RF from the other side of its LO, and
// the bin-by-bin minimum of the two views keeps what shows in both. Each
// block's spectra are worked out once, on arrival, and kept in a ring of 256
// slots, the delay line for that partner: the partner view is their mirror
// image (the spectrum of the conjugated samples).
// Below 16.1 MHz there is no such partner; a low-band pass ahead of the
// sweep builds substitute spectra from two shifted views of the high side.
//
// What the sweep's arithmetic cannot do better:
// - Below 16.1 MHz the substitute views come from LOs 100 kHz either side of
//   the step, so an image lands 200 kHz from where the main view shows it.
//   At RBW 30 kHz and below both views resolve that and the image goes; at
//   100 kHz the bin halfway sees it in both views about 3 FFT bins off, where
//   the 16-point flat top is only about 17 dB down, so images stay at -15 to
//   -19 dBc; at 250 kHz (no FFT) nothing below 16.1 MHz is removed.
// - At RBW 150 to 250 kHz a step gives one or a few bins, each corrected for
//   its own IF offset: a tone reads -0.5 to +0.6 dB by where it sits in its
//   step (above 210 kHz one power value per step against the roll-off the
//   corrections average over the step; 160 to 210 kHz a tone spread over
//   bins each corrected alone). A finer grid would need more than one
//   spectrum per hop, which the unit's one block per step does not give.
//
// Thread: one, on request, on the exchange's kRequestedBinByBin policy
// (result_exchange.h): it sleeps until a partial get call asks for a sweep,
// then runs the segments, writes each step's bins into the traces and moves
// `progress` with them, signals every 25 steps and after each segment, and
// at the end of the sweep rests again. A failed read is marked in the
// exchange and the sweep goes on with what the block holds. The ring, the
// spectra and the correction tables belong to the thread alone; nothing but
// the exchange is shared with the caller. Stop: the thread ends at the head
// of its next step (a healthy segment is read to its end first, so that the
// stream is drained); Rest forgets the first-LO path.
#ifndef QOR_ENGINE_FAST_H
#define QOR_ENGINE_FAST_H

#include <cstdint>
#include <vector>

#include "ipps.h"
#include "os.h"
#include "smart_array.h"
#include "step_sweep.h"
#include "sweep_engine.h"

namespace qor {

class DeviceCorr;

// The step grid (step_sweep.h) and the segments of a hopped sweep, fixed
// before anything runs.
struct FastSweepPlan : StepGrid {
    static constexpr int32_t kSegmentSteps = kPartnerSteps;  // steps of a segment, and the partner distance
    static constexpr int32_t kLowestStep = 27;               // lowest LO index a sweep uses

    int32_t lowSteps = 0;  // LO indices below kLowestStep that rejection would need
    int32_t segmentCount = 0;
    std::vector<int32_t> segmentStart;   // first LO index of each segment
    std::vector<int32_t> segmentLength;  // steps of each segment
};

// The plan for a sweep from `start` to `stop` (span `span`, all as
// configured, in Hz) with an FFT of `fftSize` points (1: no FFT), a
// timebase factor and rejection on or off.
FastSweepPlan PlanFastSweep(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                            bool reject);

class FastSweepEngine : public SweepEngine {
public:
    FastSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                    SpectrumCore* core, SweepInfo* sweepInfo);

private:
    static constexpr int kRingSlots = 256;
    static constexpr int kLowEntries = 80;  // substitute spectra of the lowest band

    void Rest() override;
    void Run();
    void LowBandPass();
    // One step of a segment; false when it is to be skipped (no partner yet).
    bool ProcessStep(int step, int s);
    void WriteStep();
    Ipp64fc* Block(int i) { return blocks.get() + i * 512; }
    double* RingSpectrum(smart_array<double>& spectra, int slot) {
        return spectra.get() + static_cast<size_t>(slot & (kRingSlots - 1)) * fftSize;
    }

    DeviceCorr* corr;
    const FastSweepPlan plan;
    const int32_t fftSize;
    const bool reject;
    int32_t segment = 0;
    // Thread-local positions of the sweep in progress.
    int32_t ringWrite = 0;
    int32_t ringRead = 0;
    int32_t traceStep = 0;

    // Three blocks of 512 samples: the block read, and the low-band pass's two shifted views.
    smart_array<Ipp64fc> blocks;
    smart_array<Ipp64fc> mixTone, toneUp, toneDown;
    StepCorrections corrections;
    smart_array<double> specMinA, specMaxA, specMinB, specMaxB;
    // With rejection, the ring: each block's spectra from its own LO, fftSize
    // values per slot, kRingSlots slots.
    smart_array<double> ownMin, ownMax;
    std::vector<smart_array<double>> lowMin, lowMax;  // kLowEntries each, only with low steps
};

}  // namespace qor

#endif
