#include "engine_tg.h"

#include <algorithm>
#include <cmath>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "level_choice.h"
#include "os.h"
#include "rbw_filter.h"
#include "settings.h"
#include "spectrum_core.h"
#include "tg_interface.h"
#include "tone.h"

namespace qor {
namespace {

// The wide form hands out whole sweeps as they finish; the narrow one sweeps
// on request and hands out each point as it is measured, and its 32-bit
// partial call waits as long as a point takes.
constexpr ExchangePolicy kTgWholeSweeps{false, false, os::kInfinite, true};
constexpr ExchangePolicy kTgPointByPoint{true, true, os::kInfinite, true};

constexpr double kSteps[] = {10,     20,     50,     100,    200,    500,    1000,   2000,   5000,   10000,
                             20000,  50000,  100000, 200000, 500000, 1e6,    2e6,    5e6,    1e7,    2e7};
constexpr double kPreampFrom = 250e3;
constexpr double kLowLevel = -30.0;   // generator level of the first pass
constexpr double kHighLevel = -10.0;  // and of the second
constexpr double kGateStepHz = 200000.0;
constexpr double kGateHalfStepHz = 100000.0;
constexpr double kHighIf = 10694444.4;
constexpr double kSampleRateHz = 486111.1111;
// Points below the first gate step sit at FFT bin f / kWideBinHz +
// kWideBinOrigin of a wide pass's spectrum.
constexpr double kWideBinHz = 3797.743046875;
constexpr double kWideBinOrigin = 36.0;
// A narrow capture's FFT bin width and the bin of its centre.
constexpr double kNarrowBinHz = 29.669866943359374;
constexpr double kNarrowBinMiddle = 8192.5;
constexpr int kPeakSearchFrom = 14;  // the lowest FFT bin a search without a thru looks at
constexpr int kCaptureTimeoutMs = 350;
constexpr uint32_t kSettleMs = 25;
constexpr int kMinSpectrum = 512;

}  // namespace

double TgBinSize(double span, int points) {
    double best = kSteps[0];
    for (double s : kSteps) {
        if (s == kSteps[0] || 2.0 * s > span) continue;
        if (std::fabs(span / s - points) < std::fabs(span / best - points)) best = s;
    }
    return best;
}

TGSweep::TGSweep(Settings* settings, RbwFilter* filter, AnalyzerLink* link, CalibrationStore* calibration,
                 SpectrumCore* core, SweepInfo* sweepInfo)
    : SweepEngine(settings, filter, link, calibration, core, sweepInfo),
      corr(calibration->corr.get()),
      tg(link->tg),
      fftSize(filter->fftSize),
      sampleCount(core->sampleCount) {
    Settings& s = *settings;
    const double span = s.span;
    binSize = TgBinSize(span, s.tgSweepSize);
    // The preamplifier does not reach below 250 kHz.
    if (s.start < kPreampFrom) s.tgPreamp = false;
    sweepLength = static_cast<int32_t>(std::floor(span / binSize + 1.0));
    start = s.start;
    tgStart = s.start;
    narrow = !(span > kNarrowSpan);

    const int n = sweepLength;
    const int spectrum = std::max({sampleCount, fftSize, kMinSpectrum});
    samples.Allocate(std::max(sampleCount, kMinSpectrum));
    tone.Allocate(std::max(sampleCount, kMinSpectrum));
    spectrumMax.Allocate(spectrum);
    spectrumMin.Allocate(spectrum);
    for (smart_array<double>* a : {&firstTrace, &secondTrace, &firstCorrection, &secondCorrection, &crossFirst,
                                   &crossSecond, &sumA, &sumB, &firstThru, &secondThru}) {
        a->Allocate(n);
        std::fill_n(a->get(), n, 0.0);
    }
    peakIndex.Allocate(n);
    std::fill_n(peakIndex.get(), n, 0);
    std::fill_n(firstThru.get(), n, kLowLevel);
    std::fill_n(secondThru.get(), n, kHighLevel);

    sweepInfo->sweepLength = sweepLength;
    sweepInfo->startFreq = start;
    sweepInfo->binSize = binSize;
    exchange.Configure(narrow ? kTgPointByPoint : kTgWholeSweeps, sweepLength, s.logScale);
    // The next sweep is measured while a caller takes this one: the overload
    // goes with the sweep (or point) it was seen in.
    CarryOverloadWithResults();
    if (narrow) {
        StartThread([this] { NarrowLoop(); });
    } else {
        StartThread([this] { WideLoop(); });
    }
}

qorStatus TGSweep::StoreTgThru(int flag) {
    if (flag & 1) {
        storeThruRequest = true;
    } else if (flag & 2) {
        storePadRequest = true;
    } else {
        return qorInvalidParameterErr;
    }
    return qorNoError;
}

void TGSweep::Rest() {
    link->StopGatedSweep();
}

void TGSweep::LoadCorrections() {
    const Settings& s = *settings;
    corr->temperature = link->ReadTemperature();
    corr->preampOn = s.tgPreamp;
    for (int i = 0; i < sweepLength; ++i) {
        const double f = start + i * binSize;
        firstCorrection[i] = corr->GetCorrection(f, s.attenUsed, s.gainUsed, 1, 0.0, -1);
        secondCorrection[i] = corr->GetCorrection(f, s.attenUsedB, s.gainUsedB, 1, 0.0, -1);
    }
}

void TGSweep::PlanLevels() {
    Settings& s = *settings;
    firstRefLevel = s.tgPreamp ? -28.0 : -8.0;
    secondRefLevel = s.tgPreamp ? -48.0 : -28.0;
    s.attenUsed = s.attenUsedB = 2;
    s.gainUsed = s.gainUsedB = 1;
    LoadCorrections();
    corr->SelectAttenGain(SmallestCorrection(firstCorrection.get(), sweepLength), firstRefLevel, &s.attenUsed,
                          &s.gainUsed);
    corr->SelectAttenGain(SmallestCorrection(secondCorrection.get(), sweepLength), secondRefLevel, &s.attenUsedB,
                          &s.gainUsedB);
    LoadCorrections();
}

void TGSweep::PlanGate() {
    const Settings& s = *settings;
    // The gate window counts in steps of 200 kHz; the generator's points are
    // placed in it by the offset of its start within a step.
    if (binSize > 800e3) {
        tgStart = std::floor(s.start / 1e5) * 1e5 + 50000.0;
    } else if (corr->timebaseFactor != 1.0) {
        tgStart *= tg.timebaseFactor;
    }
    const double a = tgStart / kGateHalfStepHz;
    const double k = std::floor(a);
    const double h = tgStart / kGateStepHz;
    const double y = s.stop / kGateStepHz;
    const bool odd = std::fmod(k, 2.0) != 0.0;
    if (odd) {
        windowFirst = static_cast<int32_t>(std::floor(h + 0.5));
        windowLast = static_cast<int32_t>(std::ceil(y - 0.5));
        if (windowLast < windowFirst) windowLast = windowFirst + 1;
    } else {
        // In reverse order: the analyzer runs the window from the top.
        windowLast = static_cast<int32_t>(std::floor(h));
        windowFirst = static_cast<int32_t>(std::ceil(y - 1.0));
        if (!(windowLast < windowFirst)) windowFirst = windowLast + 1;
    }
    gateStep = static_cast<int32_t>(kGateStepHz / binSize);
    gateFirst = static_cast<int32_t>((a - k) * 1e5 / binSize);
    extraReads = 0;
    directBins = 0;
    if (windowFirst == windowLast) {
        gateStep = 1;
        gateFirst = sweepLength - 1;
        if (k == 0.0) directBins = sweepLength;
    } else if (gateStep != 0) {
        extraReads = (std::abs(windowLast - windowFirst) + 1) * gateStep - gateFirst - sweepLength + 1;
        if (k == 0.0) directBins = gateStep - gateFirst;
    } else {
        // Points wider than a gate step.
        gateStep = 217;
        gateFirst = static_cast<int32_t>(std::floor(binSize / 1e5 + 0.5));
        windowFirst = static_cast<int32_t>(std::floor(h + 0.5));
        windowLast = static_cast<int32_t>(std::ceil(y - 0.5)) + (odd ? 1 : 0);
    }
    tg.BuildAmplitudeList(0, kLowLevel, tgStart, binSize, sweepLength);
    tg.BuildAmplitudeList(1, kHighLevel, tgStart, binSize, sweepLength);
}

void TGSweep::SetupPass(int atten, int gain, int list) {
    link->SetGainIndex(gain);
    link->SetAttenSteps(atten);
    tg.SendAmplitudeList(list);
    link->StartGatedSweep(gateStep, gateFirst);
    tg.ProgramSweep(tgStart, binSize, sweepLength);
    link->SetGateWindow(windowFirst, windowLast);
}

double TGSweep::FindPeak(int i) {
    // Once a thru is stored, each point's tone is where the thru found it.
    int from = kPeakSearchFrom, to = fftSize - 1;
    if (thruStored) {
        from = std::max(peakIndex[i] - 1, 0);
        to = std::min(peakIndex[i] + 1, fftSize - 1);
    }
    int found = from;
    for (int b = from; b <= to; ++b) {
        if (spectrumMax[b] >= spectrumMax[found]) found = b;
    }
    if (!thruStored) peakIndex[i] = found;
    return spectrumMax[found];
}

void TGSweep::RunPass(double* trace, const double* correction, const double* thru) {
    for (int i = 0; i < sweepLength && running; ++i) {
        if (!link->ReadSamples512(samples.get())) exchange.FailUsb();  // the pass goes on
        core->Process(samples.get(), spectrumMin.get(), spectrumMax.get(), false);
        double v = FindPeak(i);
        if (i < directBins) {
            // Points below the first gate step sit at a known bin.
            const int bin = static_cast<int>((i * binSize + start) / kWideBinHz + kWideBinOrigin);
            v = spectrumMax[std::clamp(bin, 0, fftSize - 1)];
        }
        v += correction[i];
        if (thru) v -= thru[i];
        trace[i] = v;
    }
    for (int i = 0; i < extraReads && running; ++i) link->ReadSamples512(samples.get());
    os::SleepMs(kSettleMs);
    link->StreamQueued();
    link->PurgeStream(FT_PURGE_RX);
}

void TGSweep::MergePasses() {
    // Below the first pass's floor the second pass takes over, with a blend
    // over the 10 dB above it.
    const double t = -60.0 - firstThru[sweepLength / 2] - (settings->tgPreamp ? 20.0 : 0.0);
    for (int i = 0; i < sweepLength; ++i) {
        const double v = firstTrace[i];
        if (v < t) {
            firstTrace[i] = secondTrace[i];
        } else if (v < t + 10.0) {
            const float w = static_cast<float>((v - t) * 0.1);
            firstTrace[i] = (1.0f - w) * secondTrace[i] + w * v;
        }
    }
}

void TGSweep::CrossFirst() {
    const Settings& s = *settings;
    SetupPass(s.attenUsedB, s.gainUsedB, 0);
    RunPass(crossFirst.get(), firstCorrection.get(), nullptr);
}

void TGSweep::CrossSecond() {
    const Settings& s = *settings;
    SetupPass(s.attenUsed, s.gainUsed, 1);
    RunPass(crossSecond.get(), secondCorrection.get(), nullptr);
}

void TGSweep::StoreThru() {
    const int n = sweepLength;
    // With the old thru taken back out, firstThru holds the measured level.
    ippsAdd_64f(firstThru.get(), firstTrace.get(), firstThru.get(), n);
    ippsAddC_64f(firstThru.get(), 20.0, secondThru.get(), n);
    if (!settings->tgPreamp) {
        // The strong level is never measured with the sensitive setting: its
        // thru follows from the three other combinations.
        CrossFirst();
        CrossSecond();
        ippsAdd_64f(crossFirst.get(), crossSecond.get(), sumB.get(), n);
        ippsSub_64f(firstThru.get(), sumB.get(), secondThru.get(), n);
    }
    thruStored = true;
    storeThruRequest = false;
}

void TGSweep::StorePad() {
    const int n = sweepLength;
    if (settings->tgPreamp) {
        ippsAdd_64f(firstTrace.get(), firstThru.get(), sumA.get(), n);
        CrossSecond();
        CrossFirst();
        ippsAdd_64f(crossFirst.get(), crossSecond.get(), sumB.get(), n);
        ippsSub_64f(sumA.get(), sumB.get(), sumB.get(), n);
        ippsSub_64f(firstTrace.get(), sumB.get(), secondThru.get(), n);
    }
    storePadRequest = false;
}

void TGSweep::Publish() {
    exchange.WriteTraces([this](double* trace, double*) { ippsCopy_64f(firstTrace.get(), trace, sweepLength); });
}

void TGSweep::WideLoop() {
    const Settings& s = *settings;
    link->SetPathFilter(0, corr->BandOf(s.start));
    link->RestoreSynthModulus();
    link->SetPreamp(s.tgPreamp);
    PlanLevels();
    PlanGate();
    while (running) {
        SetupPass(s.attenUsed, s.gainUsed, 0);
        RunPass(firstTrace.get(), firstCorrection.get(), firstThru.get());
        if (!running) break;
        // Only the first pass may report an overload: the others drive the
        // receiver hard on purpose.
        const bool clipped = link->TakeClipped();
        if (storeThruRequest) {
            StoreThru();
        } else if (storePadRequest) {
            StorePad();
        } else if (s.tgHighRange) {
            SetupPass(s.attenUsedB, s.gainUsedB, 1);
            RunPass(secondTrace.get(), secondCorrection.get(), secondThru.get());
            MergePasses();
        }
        link->TakeClipped();
        if (!running) break;
        Publish();
        if (clipped) link->MarkCompression();
        exchange.Signal();
    }
}

void TGSweep::RemoveDc(double f) {
    Ipp64fc mean{0.0, 0.0};
    const auto sum = [this](int from, int count) {
        Ipp64fc total{0.0, 0.0};
        for (int i = from; i < from + count; ++i) {
            total.re += samples[i].re;
            total.im += samples[i].im;
        }
        return total;
    };
    const double c = std::floor(f / 29.9);
    if (c > 0.5) {
        // A whole number of cycles of f.
        const int n = std::clamp(static_cast<int>(kSampleRateHz / f * c), 1, sampleCount);
        mean = sum(0, n);
        mean.re /= n;
        mean.im /= n;
    } else {
        constexpr int kPiece = 256;
        Ipp64fc a = sum(256, kPiece), b = sum(8358, kPiece), d = sum(16460, kPiece);
        for (Ipp64fc* p : {&a, &b, &d}) {
            p->re /= kPiece;
            p->im /= kPiece;
        }
        if (f < 15.0) {
            mean = {a.re + d.re - b.re, a.im + d.im - b.im};
        } else {
            mean = {(a.re + b.re + d.re) / 3.0, (a.im + b.im + d.im) / 3.0};
        }
    }
    for (int i = 0; i < sampleCount; ++i) {
        samples[i].re -= mean.re;
        samples[i].im -= mean.im;
    }
}

void TGSweep::NarrowLoop() {
    const Settings& s = *settings;
    const int band = corr->BandOf(s.start);
    link->SetPathFilter(0, band);
    link->SetPreamp(s.tgPreamp);
    PlanLevels();
    link->SetGainIndex(s.gainUsed);
    link->SetAttenSteps(s.attenUsed);

    // The analyzer stays at the centre; the generator moves.
    TuningPlan& plan = link->Plan();
    LoTuning& record = plan.recordA;
    const double center = s.center / corr->timebaseFactor;
    if (link->Family().IsOrsk()) {
        record.path = OrskPathForBand(band);
        link->SetOrskPath(record.path);
    }
    double r = plan.PlanTuning(center, kHighIf, true, -1, record, band);
    if (center < 150e6) {
        link->ProgramSynthDivided(record.integer, record.fraction, record.modulus, record.dividerLog2);
    } else {
        link->ProgramSynth(record.integer, record.fraction, record.modulus, record.dividerLog2);
    }
    std::fill_n(firstTrace.get(), sweepLength, 0.0);
    double base = s.center;
    if (s.center < 60e3) {
        r -= s.center;
        base = 0.0;
    }
    double rel = -r / kSampleRateHz;
    if (rel < 0.0) rel += 1.0;
    FillTone(tone.get(), sampleCount, rel);

    while (running) {
        if (!exchange.AwaitRequest() || !running) break;
        for (int i = 0; i < sweepLength; ++i) {
            const double f = start + i * binSize;
            tg.SetFrequencyAmplitude(f, kLowLevel);
            link->CaptureBlock(samples.get(), sampleCount, kCaptureTimeoutMs);
            double v;
            if (f < 201.0) {
                ippsMul_64fc_I(tone.get(), samples.get(), sampleCount);
                RemoveDc(f);
                core->Process(samples.get(), spectrumMin.get(), spectrumMax.get(), false);
                v = FindPeak(i);
            } else if (f < 1e6) {
                // Low tones sit at a known bin once the residual is mixed away.
                ippsMul_64fc_I(tone.get(), samples.get(), sampleCount);
                core->Process(samples.get(), spectrumMin.get(), spectrumMax.get(), false);
                const int bin = static_cast<int>(std::floor((f - base) / kNarrowBinHz + kNarrowBinMiddle));
                v = spectrumMax[std::clamp(bin, 0, fftSize - 1)];
            } else {
                core->Process(samples.get(), spectrumMin.get(), spectrumMax.get(), false);
                v = FindPeak(i);
            }
            firstTrace[i] = v + firstCorrection[i] - firstThru[i];
            exchange.WriteTraces([&](double* trace, double*) { trace[i] = firstTrace[i]; }, i + 1);
            if (link->TakeClipped()) link->MarkCompression();
            exchange.Signal();
            if (!running) break;
        }
        if (storeThruRequest && running) {
            ippsAdd_64f(firstThru.get(), firstTrace.get(), firstThru.get(), sweepLength);
            thruStored = true;
            storeThruRequest = false;
        }
        exchange.FinishSweep();
    }
}

}  // namespace qor
