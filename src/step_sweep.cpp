#include "step_sweep.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "corrections.h"
#include "level_choice.h"
#include "rbw_filter.h"
#include "settings.h"
#include "sweep_engine.h"
#include "tone.h"

namespace qor {
namespace {

constexpr int kCorrectionRoom = 512;  // a step's slice of the tables may reach past the trace

}  // namespace

StepGrid PlanStepGrid(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                      EdgeScale scale) {
    StepGrid g;
    const double ratio = timebaseFactor;
    const double startDivided = start / ratio;
    const double stopDivided = stop / ratio;

    const double binWidth = fftSize >= 2 ? kSampleRate / fftSize : kLoStep;
    g.binsPerStep = static_cast<int32_t>(std::floor(kLoStep / binWidth + 0.5));
    g.stepBin = kLoStep / g.binsPerStep;
    g.binSize = g.stepBin * ratio;
    g.sweepLength = static_cast<int32_t>(std::floor(span / g.binSize + 0.5));

    // The first step shows its lowest kept bin 60 kHz above start at most,
    // the last its highest 60 kHz below stop at least.
    g.stepStart = static_cast<int32_t>(std::floor((startDivided + kNominalIf + 60000.0) / kLoStep));
    g.stepStop = static_cast<int32_t>(std::ceil((stopDivided + kNominalIf - 60000.0) / kLoStep));
    g.stepCount = g.stepStop - g.stepStart + 1;

    // The frequency of the first kept bin of the first step.
    const double stepEdge = g.stepStart * kLoStep - kNominalIf;
    if (scale == EdgeScale::Reported) {
        const double edge = stepEdge - (g.binsPerStep / 2) * g.binSize;
        g.firstBin = static_cast<int32_t>(std::floor((start - edge) / g.binSize + 0.5));
        g.startFreq = g.firstBin * g.binSize + ratio * edge;
    } else {
        const double edge = stepEdge - (g.binsPerStep / 2) * g.stepBin;
        g.firstBin = static_cast<int32_t>(std::floor((startDivided - edge) / g.stepBin + 0.5));
        g.startFreq = (g.firstBin * g.stepBin + edge) * ratio;
    }
    return g;
}

StepSlice SliceOfStep(const StepGrid& grid, int32_t traceStep, int32_t fftSize) {
    StepSlice s{fftSize / 2 - grid.binsPerStep / 2, grid.binsPerStep * traceStep - grid.firstBin,
                grid.binsPerStep};
    if (s.to < 0) {
        s.count += s.to;
        s.from -= s.to;
        s.to = 0;
    }
    if (s.count + s.to > grid.sweepLength) s.count = grid.sweepLength - s.to;
    return s;
}

StepCorrections::StepCorrections(DeviceCorr* corr, const StepGrid& grid, double noPartnerBelow, bool withLow)
    : corr(corr), grid(grid), noPartnerBelow(noPartnerBelow), withLow(withLow) {
    const int length = std::max(grid.sweepLength, 0) + kCorrectionRoom;
    high.Allocate(length);
    std::fill_n(high.get(), length, 0.0);
    if (withLow) {
        low.Allocate(length);
        std::fill_n(low.get(), length, 0.0);
    }
}

void StepCorrections::Compute(AnalyzerLink* link, const Settings& settings, bool alsoLow) {
    corr->temperature = link->ReadTemperature();
    corr->preampOn = settings.preamp;
    const int atten = settings.attenUsed;
    const int gain = settings.gainUsed;
    const int bps = grid.binsPerStep;
    int k = ((grid.firstBin % bps) + bps) % bps;  // place of trace bin 0 within its step
    for (int i = 0; i < grid.sweepLength; ++i, k = k + 1 == bps ? 0 : k + 1) {
        const double f = i * grid.binSize + grid.startFreq;
        // The LO above the signal, and the IF offset of the bin there.
        const double ifA = (k - bps / 2) * grid.binSize - kMixOffset;
        const double loA = std::floor((f - ifA + kSampledIf) / kLoStep + 0.5) * kLoStep;
        high[i] = corr->GetCorrection(f, atten, gain, 1, ifA, corr->BandOf(loA));
        if (!alsoLow) continue;
        // The same frequency from the LO 21.4 MHz below, the IF offset turned over.
        const double ifB = (bps / 2 - k) * grid.binSize - kMixOffset;
        const double loB = f < noPartnerBelow ? loA : std::floor((ifB + f - kSampledIf) / kLoStep + 0.5) * kLoStep;
        low[i] = corr->GetCorrection(f, atten, gain, 1, ifB, corr->BandOf(loB));
    }
}

void StepCorrections::ChooseLevel(AnalyzerLink* link, Settings& s) {
    if (!TakeConfiguredLevel(s)) {
        StartAutomaticLevel(s, PreampReach::From250kHz);
        Compute(link, s, false);  // the choice rests on the high view alone
        corr->SelectAttenGain(SmallestCorrection(high.get(), grid.sweepLength), s.refLevel, &s.attenUsed,
                              &s.gainUsed);
    }
    Compute(link, s, withLow);
}

void ConfigureStepPath(AnalyzerLink* link, DeviceCorr* corr, const Settings& s) {
    link->SetPreamp(s.preamp);
    link->SetPathFilter(0, corr->BandOf(s.start));
    link->SetGainIndex(s.gainUsed);
    link->SetAttenSteps(s.attenUsed);
}

void BuildTone(smart_array<Ipp64fc>& tone, int length, double frequency) {
    tone.Allocate(length);
    FillTone(tone.get(), length, frequency);
}

}  // namespace qor
