#include "engine_slow.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "level_choice.h"
#include "rbw_filter.h"
#include "settings.h"
#include "spectrum_core.h"
#include "tone.h"

namespace qor {
namespace {

constexpr double kAltSampleRate = 468750.0;
// IF of each path filter selection (0 high, 1 low), for the normal and the
// alternate sample clock.
constexpr double kIf[2][2] = {{10694444.4444444, 2916666.66666667}, {10687500.0, 2812500.0}};
constexpr int kMaxBlockCapture = 65536;
constexpr int kStreamRounding = 4096;

// Multiples of 70 MHz fall on a spur of the normal sample clock.
bool NeedsAltClock(double center) {
    const double nearest = std::floor(center / 70e6 + 0.5);
    return std::fabs(center / 70e6 - nearest) * 70e6 <= 100000.0 && center >= 50e6 && center <= 4e9;
}

}  // namespace

SlowSweepEngine::SlowSweepEngine(Settings* settings, RbwFilter* filter, AnalyzerLink* link,
                                 CalibrationStore* calibration, SpectrumCore* core, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, core, sweepInfo),
      corr(calibration->corr.get()),
      fftSize(filter->fftSize),
      sampleCount(core->sampleCount),
      center(settings->center / corr->timebaseFactor),
      start(settings->start / corr->timebaseFactor),
      sampleRate(kSampleRate),
      band(corr->BandOf(start)) {
    const int n = fftSize;
    samples.Allocate(sampleCount + kStreamRounding);
    if (n > 1) {
        toneA.Allocate(n);
        toneB.Allocate(n);
    }
    for (smart_array<double>* a : {&minA, &maxA, &minB, &maxB, &corrA, &corrB}) a->Allocate(n);

    // Pass B takes the low IF only above 5 MHz and at moderate levels.
    if (center <= 5e6 || settings->refLevel > 2.0) ifSelectB = 0;
    if (NeedsAltClock(center)) {
        altClock = 1;
        link->SelectSampleClock(1);
        sampleRate = kAltSampleRate;
    }

    binSize = sampleRate / n;
    sweepLength = static_cast<int32_t>(std::trunc(settings->span / binSize));
    binOffset = (n - sweepLength) / 2;
    // Only the span's bins reach the traces.
    core->KeepBins(binOffset, sweepLength);
    sweepInfo->binSize = binSize;
    sweepInfo->sweepLength = sweepLength;
    sweepInfo->startFreq = settings->center - (sweepLength / 2) * binSize;
    exchange.Configure(kFreeRunningSweeps, sweepLength, settings->logScale);

    TuningPlan& plan = link->Plan();
    if (link->Family().IsOrsk()) {
        plan.recordA.path = OrskPathForBand(band);
        plan.recordB.path = band < 2 ? 3 : (band == 2 || band == 4) ? 1 : 2;
    }
    const double ifA = kIf[altClock][ifSelectA];
    const double ifB = kIf[altClock][ifSelectB];
    residualA = plan.PlanTuning(center, ifA, true, -1, plan.recordA, band);
    residualB = plan.PlanTuning(center, ifB, true, plan.recordA.modulus, plan.recordB, band);

    conjugateBase = band == 2 || band == 3;
    conjugateA = altClock ? !conjugateBase : conjugateBase;
    conjugateB = altClock && ifSelectB == 0 ? !conjugateBase : conjugateBase;
    // The next sweep is measured while a caller takes this one: the overload
    // goes with the sweep it was seen in.
    CarryOverloadWithResults();
    StartThread([this] { Run(); });
}

void SlowSweepEngine::Rest() {
    if (altClock) link->SelectSampleClock(0);
    link->RestoreSynthModulus();
    link->ReleaseSweepPath();
}

void SlowSweepEngine::ComputeCorrections() {
    corr->temperature = link->ReadTemperature();
    corr->preampOn = settings->preamp;
    const int highIfB = ifSelectB == 0 ? 1 : 0;
    // Where a trace bin sat in the samples before the shift: a conjugated
    // pass saw it on the other side of the IF centre.
    const auto ifOffset = [](double off, bool conjugate, double offset) { return (conjugate ? -off : off) - offset; };
    for (int i = 0; i < sweepLength; ++i) {
        const double off = (i - sweepLength / 2) * binSize;
        const double f = off + center;
        corrA[i] = corr->GetCorrection(f, settings->attenUsed, settings->gainUsed, 1,
                                       ifOffset(off, conjugateA, offsetA), band);
        corrB[i] = corr->GetCorrection(f, settings->attenUsedB, settings->gainUsedB, highIfB,
                                       ifOffset(off, conjugateB, offsetB), band);
    }
}

void SlowSweepEngine::PrepareLevel() {
    Settings& s = *settings;
    if (!TakeConfiguredLevel(s)) {
        StartAutomaticLevel(s, PreampReach::From250kHz);
        ComputeCorrections();
        corr->SelectAttenGain(SmallestCorrection(corrA.get(), sweepLength), s.refLevel, &s.attenUsed, &s.gainUsed);
        corr->SelectAttenGain(SmallestCorrection(corrB.get(), sweepLength), s.refLevel, &s.attenUsedB,
                              &s.gainUsedB);
    }
    ComputeCorrections();
}

void SlowSweepEngine::ConfigurePass(const LoTuning& record, uint8_t ifSelect, int atten, int gain) {
    if (link->Family().IsOrsk()) link->SetOrskPath(record.path);
    if (band == 0) {
        link->ProgramSynthDivided(record.integer, record.fraction, record.modulus, record.dividerLog2);
    } else {
        link->ProgramSynth(record.integer, record.fraction, record.modulus, record.dividerLog2);
    }
    link->SetPathFilter(ifSelect, band);
    link->SetGainIndex(gain);
    link->SetAttenSteps(atten);
}

bool SlowSweepEngine::Capture(int timeoutMs) {
    if (sampleCount > kMaxBlockCapture) {
        const int rounded = (sampleCount + kStreamRounding - 1) / kStreamRounding * kStreamRounding;
        if (link->CaptureStream(samples.get(), rounded)) return true;
    } else {
        for (int attempt = 0; attempt < 2; ++attempt) {
            const AnalyzerLink::Capture capture = link->CaptureBlock(samples.get(), sampleCount, timeoutMs);
            if (capture == AnalyzerLink::Capture::Complete) return true;
            // A capture torn on the way (bytes of it lost, its sync word
            // garbled) is taken once more, once the rest of it is drained; a
            // unit that sends nothing, refuses the calls or fails twice is gone.
            if (!running || !link->StreamAnswers()) break;
            const bool drained = link->DrainStream(static_cast<uint32_t>(timeoutMs));
            if (!drained && capture != AnalyzerLink::Capture::TimedOut) break;
            link->TakeClipped();  // of the torn capture, measured again
        }
    }
    running = false;
    exchange.FailUsb();
    return false;
}

void SlowSweepEngine::MergeIntoTraces(double* minTrace, double* maxTrace) {
    if (sweepLength <= 0) return;
    double* a[2] = {minA.get() + binOffset, maxA.get() + binOffset};
    double* b[2] = {minB.get() + binOffset, maxB.get() + binOffset};
    double* trace[2] = {minTrace, maxTrace};
    for (int k = 0; k < 2; ++k) {
        ippsAdd_64f(corrA.get(), a[k], a[k], sweepLength);
        if (!settings->reject) {
            ippsCopy_64f(a[k], trace[k], sweepLength);
            continue;
        }
        ippsAdd_64f(corrB.get(), b[k], b[k], sweepLength);
        // Pass B unless pass A reads at least 1 dB lower: an image shows in one pass only.
        for (int i = 0; i < sweepLength; ++i) trace[k][i] = a[k][i] <= b[k][i] - 1.0 ? a[k][i] : b[k][i];
    }
}

void SlowSweepEngine::Run() {
    Settings& s = *settings;
    TuningPlan& plan = link->Plan();
    link->SetPreamp(s.preamp);
    const int timeoutMs = sampleCount / 480 + 250;

    // The digital shifts put trace bin i on startFreq + i x binSize, the
    // frequency qorQuerySweepInfo reports, whatever residual the synthesizer
    // leaves. `tune` is the pass's centre mirrored by its residual; a pass
    // whose spectrum is conjugated after the shift takes the shift as it
    // stands, the others take it mirrored about the centre (the samples of
    // the two kinds arrive in opposite senses).
    const int k = fftSize / 2 - binOffset;
    const double first = center - (sweepLength / 2) * binSize;
    const auto shift = [&](double tune, bool conjugate) {
        return conjugate ? first - (tune - k * binSize) : (2.0 * center - tune) - k * binSize - first;
    };
    const double tuneA = altClock ? center - residualA : center + residualA;
    const double tuneB = altClock && ifSelectB == 0 ? center - residualB : center + residualB;
    offsetA = shift(tuneA, conjugateA);
    offsetB = shift(tuneB, conjugateB);
    if (toneA.get()) {
        FillTone(toneA.get(), fftSize, offsetA / sampleRate);
        FillTone(toneB.get(), fftSize, offsetB / sampleRate);
        core->WindowTone(toneA.get(), conjugateA);
        core->WindowTone(toneB.get(), conjugateB);
    }

    PrepareLevel();
    link->SetPreamp(s.preamp);
    ConfigurePass(plan.recordA, ifSelectA, s.attenUsed, s.gainUsed);

    while (running) {
        if (Capture(timeoutMs)) {
            core->Process(samples.get(), minA.get(), maxA.get(), conjugateA, toneA.get());
        }
        if (s.reject && running) {
            ConfigurePass(plan.recordB, ifSelectB, s.attenUsedB, s.gainUsedB);
            if (Capture(timeoutMs)) {
                core->Process(samples.get(), minB.get(), maxB.get(), conjugateB, toneB.get());
            }
            ConfigurePass(plan.recordA, ifSelectA, s.attenUsed, s.gainUsed);
        }
        // After a failed capture the spectra are stale and already corrected:
        // the traces keep the last complete sweep.
        if (!exchange.UsbFailed()) {
            exchange.WriteTraces([this](double* minTrace, double* maxTrace) { MergeIntoTraces(minTrace, maxTrace); });
        }
        if (link->TakeClipped()) link->MarkCompression();
        exchange.Signal();
    }
}

}  // namespace qor
