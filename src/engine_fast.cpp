#include "engine_fast.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "rbw_filter.h"
#include "settings.h"
#include "spectrum_core.h"

namespace qor {
namespace {

constexpr int kBlock = AnalyzerLink::kBlockSamples;
constexpr int kSettlingSamples = 256;  // the spectra skip them
// Normalised frequencies of the two shifted views of the low-band pass
// (+105555.56 Hz and -94444.44 Hz).
constexpr double kUpFrequency = 0.21714285805714284;
constexpr double kDownFrequency = 0.8057142866285714;
// The partner 21.4 MHz below exists from this LO index on.
constexpr int kFirstPartnerStep = FastSweepPlan::kSegmentSteps + FastSweepPlan::kLowestStep;
// Substitute entry e stands for LO index e + kLowEntryStep.
constexpr int kLowEntryStep = 54;
constexpr double kLowSubstituteDb = 1.5;
constexpr double kNoPartnerBelow = 16.1e6;  // no LO 21.4 MHz under the signal
constexpr int kStepsPerDone = 25;           // steps between two deliveries

// Bin k of `spectrum` (DC in the middle, bin -N/2 first) becomes bin -k:
// the spectrum of the conjugated samples.
void MirrorSpectrum(const double* spectrum, double* mirrored, int n) {
    mirrored[0] = spectrum[0];
    for (int i = 1; i < n; ++i) mirrored[i] = spectrum[n - i];
}

}  // namespace

FastSweepPlan PlanFastSweep(double start, double stop, double span, int32_t fftSize, double timebaseFactor,
                            bool reject) {
    constexpr int32_t kSegment = FastSweepPlan::kSegmentSteps;
    FastSweepPlan p;
    static_cast<StepGrid&>(p) = PlanStepGrid(start, stop, span, fftSize, timebaseFactor, EdgeScale::Reported);
    const double spanDivided = span / timebaseFactor;

    // Segments of 107 steps; with rejection the first reaches 107 steps
    // further down, to fill the delay line with the partners.
    p.segmentCount = std::max(1, static_cast<int32_t>(std::ceil(spanDivided / (kSegment * kLoStep))));
    const int32_t lead = reject ? kSegment : 0;
    p.segmentStart.resize(static_cast<size_t>(p.segmentCount));
    p.segmentLength.resize(static_cast<size_t>(p.segmentCount));
    for (int32_t k = 0; k < p.segmentCount; ++k) {
        p.segmentStart[k] = p.stepStart + kSegment * k;
        p.segmentLength[k] = k + 1 < p.segmentCount ? kSegment : p.stepCount - kSegment * k;
    }
    p.segmentStart[0] -= lead;
    p.segmentLength[0] += lead;
    if (p.segmentStart[0] < FastSweepPlan::kLowestStep) {
        p.lowSteps = FastSweepPlan::kLowestStep - p.segmentStart[0];
        p.segmentStart[0] = FastSweepPlan::kLowestStep;
        p.segmentLength[0] -= p.lowSteps;
    }
    return p;
}

FastSweepEngine::FastSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link,
                                 CalibrationStore* calibration, SpectrumCore* core, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, core, sweepInfo),
      corr(calibration->corr.get()),
      plan(PlanFastSweep(settings->start, settings->stop, settings->span, filter->fftSize, corr->timebaseFactor,
                         settings->reject)),
      fftSize(filter->fftSize),
      reject(settings->reject),
      corrections(corr, plan, kNoPartnerBelow, settings->reject) {
    sweepInfo->sweepLength = plan.sweepLength;
    sweepInfo->startFreq = plan.startFreq;
    sweepInfo->binSize = plan.binSize;
    sweepInfo->blocksPerStep = 1;

    blocks.Allocate(3 * kBlock);
    ippsZero_64fc(blocks.get(), 3 * kBlock);
    BuildTone(mixTone, kBlock, kMixFrequency);
    exchange.Configure(kRequestedBinByBin, plan.sweepLength, settings->logScale);
    for (smart_array<double>* spectrum : {&specMinA, &specMaxA, &specMinB, &specMaxB}) spectrum->Allocate(fftSize);
    if (reject) {
        ownMin.Allocate(kRingSlots * fftSize);
        ownMax.Allocate(kRingSlots * fftSize);
        ippsZero_64f(ownMin.get(), kRingSlots * fftSize);
        ippsZero_64f(ownMax.get(), kRingSlots * fftSize);
    }
    if (plan.lowSteps > 0) {
        BuildTone(toneUp, kBlock, kUpFrequency);
        BuildTone(toneDown, kBlock, kDownFrequency);
        lowMin.resize(kLowEntries);
        lowMax.resize(kLowEntries);
        for (int e = 0; e < kLowEntries; ++e) {
            lowMin[e].Allocate(fftSize);
            lowMax[e].Allocate(fftSize);
        }
    }
    StartThread([this] { Run(); });
}

void FastSweepEngine::Rest() { link->ReleaseSweepPath(); }

void FastSweepEngine::LowBandPass() {
    link->RestoreSynthModulus();
    link->SetSweepWindow(kFirstPartnerStep - 1, kFirstPartnerStep - 1 - plan.lowSteps);
    Ipp64fc* raw = Block(0);
    Ipp64fc* up = Block(1);
    Ipp64fc* down = Block(2);
    const int half = fftSize / 2;
    for (int i = kLowEntries - plan.lowSteps; i <= kLowEntries; ++i) {
        if (!link->ReadSamples512(raw)) exchange.FailUsb();
        ippsMul_64fc(raw, toneUp.get(), up, kBlock);
        ippsMul_64fc(raw, toneDown.get(), down, kBlock);
        core->Process(down, specMinB.get(), specMaxB.get(), false);
        core->Process(up, specMinA.get(), specMaxA.get(), false);
        if (half == 0) continue;  // no FFT: nothing to keep
        // An entry joins the upper half of one block and the lower half of the previous one.
        if (i > 0) {
            ippsCopy_64f(specMinA.get() + half, lowMin[i - 1].get() + half, half);
            ippsCopy_64f(specMaxA.get() + half, lowMax[i - 1].get() + half, half);
        }
        if (i >= 0 && i < kLowEntries) {
            ippsCopy_64f(specMinB.get(), lowMin[i].get(), half);
            ippsCopy_64f(specMaxB.get(), lowMax[i].get(), half);
        }
    }
}

bool FastSweepEngine::ProcessStep(int step, int s) {
    const int slot = ringWrite;
    Ipp64fc* block = Block(0);
    const int lag = (ringWrite - ringRead) & (kRingSlots - 1);
    ringWrite = (ringWrite + 1) & (kRingSlots - 1);
    if (!link->ReadSamples512(block)) exchange.FailUsb();  // go on with what the block holds
    // The spectra read only what follows the settling of the hop.
    const int from = core->skipLeading ? kSettlingSamples : 0;
    ippsMul_64fc_I(mixTone.get() + from, block + from, kBlock - from);
    core->Process(block, specMinA.get(), specMaxA.get(), false);
    if (!reject) return true;
    // The block's own view is kept for the step 21.4 MHz higher, whose partner it is.
    ippsCopy_64f(specMinA.get(), RingSpectrum(ownMin, slot), fftSize);
    ippsCopy_64f(specMaxA.get(), RingSpectrum(ownMax, slot), fftSize);
    if (lag < FastSweepPlan::kSegmentSteps) return false;  // the partner of this block is not there yet
    const int older = ringRead;
    ringRead = (ringRead + 1) & (kRingSlots - 1);
    const int entry = step - kLowEntryStep;
    if (step >= kFirstPartnerStep) {
        // Taken 21.4 MHz lower, conjugated, it shows the same RF on the same
        // bins; the spectrum of a conjugated block is its own mirrored.
        MirrorSpectrum(RingSpectrum(ownMin, older), specMinB.get(), fftSize);
        MirrorSpectrum(RingSpectrum(ownMax, older), specMaxB.get(), fftSize);
    } else if ((fftSize == 1 && s < plan.lowSteps + FastSweepPlan::kSegmentSteps) || entry < 0) {
        // No usable substitute: this step goes without rejection.
        ippsCopy_64f(specMinA.get(), specMinB.get(), fftSize);
        ippsCopy_64f(specMaxA.get(), specMaxB.get(), fftSize);
    } else {
        ippsAddC_64f(lowMin[entry].get(), kLowSubstituteDb, specMinB.get(), fftSize);
        ippsAddC_64f(lowMax[entry].get(), kLowSubstituteDb, specMaxB.get(), fftSize);
    }
    return true;
}

void FastSweepEngine::WriteStep() {
    const StepSlice slice = SliceOfStep(plan, traceStep, fftSize);
    const int count = slice.count;
    const int from = slice.from;
    const int to = slice.to;
    if (count <= 0) return;

    exchange.WriteTraces([&](double* minTrace, double* maxTrace) {
        double* minA = specMinA.get() + from;
        double* maxA = specMaxA.get() + from;
        if (reject) {
            double* minB = specMinB.get() + from;
            double* maxB = specMaxB.get() + from;
            ippsAdd_64f(corrections.High() + to, minA, minA, count);
            ippsAdd_64f(corrections.High() + to, maxA, maxA, count);
            ippsAdd_64f(corrections.Low() + to, minB, minB, count);
            ippsAdd_64f(corrections.Low() + to, maxB, maxB, count);
            // What shows in one view only is an image: keep the lower reading.
            ippsMinEvery_64f(minA, minB, minTrace + to, count);
            ippsMinEvery_64f(maxA, maxB, maxTrace + to, count);
        } else {
            ippsAdd_64f(corrections.High() + to, minA, minTrace + to, count);
            ippsAdd_64f(corrections.High() + to, maxA, maxTrace + to, count);
        }
    }, count + to);
}

void FastSweepEngine::Run() {
    link->RestoreSynthModulus();
    corrections.ChooseLevel(link, *settings);
    ConfigureStepPath(link, corr, *settings);
    while (running) {
        if (segment == 0) {
            if (!exchange.AwaitRequest() || !running) break;
            if (plan.lowSteps > 0) {
                LowBandPass();
                ringWrite = (ringWrite + plan.lowSteps) & (kRingSlots - 1);
            }
        }
        const int first = plan.segmentStart[segment];
        const int length = plan.segmentLength[segment];
        link->SetSweepWindow(first, first + length - 1);
        for (int s = 0; s < length; ++s) {
            // A healthy segment is read to its end so that the stream is
            // drained; on a dead link a stop need not wait for that.
            if (exchange.UsbFailed() && !running) break;
            if (!ProcessStep(first + s, s)) continue;
            WriteStep();
            ++traceStep;
            if (s % kStepsPerDone == kStepsPerDone - 1 && s < length - 20) exchange.Signal();
        }
        if (++segment == plan.segmentCount) {
            segment = 0;
            traceStep = 0;
            ringWrite = 0;
            ringRead = 0;
            exchange.FinishSweep();
        } else {
            exchange.Signal();
        }
    }
}

}  // namespace qor
