// What the two hopped sweeps (the fast and the midrange engine) share: the
// step grid, the place of a step's bins in the trace, the correction tables
// of the two views, the automatic level and the path they configure.
//
// The unit steps its LO by 200 kHz; LO index n is an LO of n x 200 kHz.
// After a mix by 5555.56 Hz, which moves the sampled IF (10694444.44 Hz) to
// the middle of the spectrum, a bin offset y from the middle at LO index n
// is the RF n x 200 kHz - 10.7 MHz + y. Each step gives binsPerStep bins of
// stepBin = 200 kHz / binsPerStep, taken from the middle of its spectrum.
// With image rejection a step is paired with the one 107 steps (21.4 MHz)
// lower: conjugated, that one shows the same RF from the other side of its
// LO ("view B", corrected with corrLow), and the bin-by-bin minimum of the
// two views removes what shows in one of them only.
#ifndef QOR_STEP_SWEEP_H
#define QOR_STEP_SWEEP_H

#include <cstdint>

#include "ipps.h"
#include "smart_array.h"

namespace qor {

class AnalyzerLink;
class DeviceCorr;
struct Settings;

constexpr double kLoStep = 200000.0;
constexpr double kNominalIf = 10700000.0;
constexpr double kSampledIf = 10694444.44;
constexpr double kMixOffset = 5555.56;  // moves the sampled IF to the middle of the spectrum
constexpr double kMixFrequency = 0.011428571428571429;  // the same, normalised to the sample rate
constexpr int32_t kPartnerSteps = 107;  // 21.4 MHz: the LO on the other side of a signal

// Where the step grid's first edge is summed: the fast sweep sums it on the
// reported bin size and the configured start, the midrange sweep wholly on
// the scale divided by the timebase factor and multiplies at the end. Both
// agree when the factor is 1.
enum class EdgeScale { Reported, Divided };

struct StepGrid {
    int32_t binsPerStep = 0;  // trace bins taken from each step
    int32_t firstBin = 0;     // bins left out at the start of the first step
    int32_t sweepLength = 0;
    int32_t stepStart = 0;    // LO index of the first step that reaches the trace
    int32_t stepStop = 0;
    int32_t stepCount = 0;    // stepStart to stepStop
    double stepBin = 0.0;     // bin width on the divided scale
    double binSize = 0.0;     // reported bin width: stepBin x timebase factor
    double startFreq = 0.0;   // reported frequency of trace bin 0
};

// The grid of a sweep from `start` to `stop` (span `span`, Hz as configured)
// with an FFT of `fftSize` points (1: no FFT).
StepGrid PlanStepGrid(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                      EdgeScale scale);

// The part of step number `traceStep` (counted from the first step that
// reaches the trace) that lands in the trace: `count` values from spectrum
// index `from` to trace index `to`; `count` may be 0 or less.
struct StepSlice {
    int32_t from;
    int32_t to;
    int32_t count;
};

StepSlice SliceOfStep(const StepGrid& grid, int32_t traceStep, int32_t fftSize);

// The correction of each trace bin for the view from the LO above the
// signal (high) and from the LO 21.4 MHz below it (low), with the automatic
// level choice that rests on them. The tables have room for 512 values
// beyond the trace.
class StepCorrections {
public:
    // Below `noPartnerBelow` Hz the low view takes the band of the LO above.
    // Without `withLow` (no rejection) the low table is not computed.
    StepCorrections(DeviceCorr* corr, const StepGrid& grid, double noPartnerBelow, bool withLow);

    // The level: the configured attenuation and gain, or the automatic
    // choice for the reference level (preamplifier, then attenuation and
    // gain from the smallest correction); the tables follow the choice.
    void ChooseLevel(AnalyzerLink* link, Settings& settings);

    const double* High() const { return high.get(); }
    const double* Low() const { return low.get(); }

private:
    // Reads the unit's temperature and fills the tables for the level in
    // `settings` (attenUsed, gainUsed, preamp); the low one only if asked.
    void Compute(AnalyzerLink* link, const Settings& settings, bool alsoLow);

    DeviceCorr* corr;
    const StepGrid grid;
    double noPartnerBelow;
    bool withLow;
    smart_array<double> high, low;
};

// Preamplifier, path filter for the band of the start, gain stages and
// attenuator, from the level in `settings`.
void ConfigureStepPath(AnalyzerLink* link, DeviceCorr* corr, const Settings& settings);

// A tone of `length` samples at `frequency` (normalised), magnitude 1, phase 0.
void BuildTone(smart_array<Ipp64fc>& tone, int length, double frequency);

}  // namespace qor

#endif
