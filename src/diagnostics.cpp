#include "diagnostics.h"

#include <cmath>
#include <cstring>

#include "device.h"
#include "hold.h"
#include "ipps.h"
#include "os.h"
#include "smart_array.h"

namespace qor {
namespace {

constexpr double kSelfTestFrequency = 1.4e8;
constexpr double kSelfTestHighIf = 10694444.4;
constexpr double kSelfTestLowIf = 2916666.7;
constexpr int kSelfTestSamples = 4096;
constexpr int kSelfTestLimitMs = 350;
constexpr int kSelfTestSettling = 1024;  // samples dropped at the head of a capture
constexpr uint32_t kSourceSettleMs = 100;
constexpr int32_t kSelfTestPath = 3;  // first-LO path of the 12.4 GHz family; bands 0 and 1 bypass it

// A window a self-test level must lie strictly inside.
struct Window {
    double low, high;
    bool Holds(double level) const { return level > low && level < high; }
};

struct SelfTestLimits {
    Window highBand, lowBand, attenuator, lowIf, preamp;
};

constexpr SelfTestLimits kVelmBLimits{{-40.7, -28.7}, {-39.6, -27.6}, {-7.0, -3.0}, {-33.2, -21.2}, {-30.5, -10.5}};
constexpr SelfTestLimits kOrskBLimits{{-30.0, -18.0}, {-35.0, -23.0}, {-12.0, -8.0}, {-37.0, -23.0}, {-47.0, -33.0}};

// IF output limits of the 12.4 GHz family.
constexpr double kIFInputLowest = 1.25e8;
constexpr double kIFInputHighest = 1.3e10;
constexpr double kIFInvertedFrom = 2.01e8;  // below it the LO stays under the input: no inverted output
constexpr int kIFAttenHighest = 30;
constexpr int kIFGainHighest = 60;

}  // namespace

double SelfTestLevelDb(const Ipp64fc* samples, int count) {
    double power = 0.0;
    for (int i = kSelfTestSettling; i < count; ++i)
        power += samples[i].re * samples[i].re + samples[i].im * samples[i].im;
    return 10.0 * std::log10(power / (count - kSelfTestSettling));
}

void JudgeSelfTest(int deviceType, SelfTestResults& r) {
    const SelfTestLimits& limits = deviceType == DeviceTypeOrskB ? kOrskBLimits : kVelmBLimits;
    r.highBandPass = limits.highBand.Holds(r.highBandLevel);
    r.lowBandPass = limits.lowBand.Holds(r.lowBandLevel);
    r.attenuatorPass = limits.attenuator.Holds(r.attenuatorDelta);
    r.lowIfPass = limits.lowIf.Holds(r.lowIfLevel);
    r.preampPass = limits.preamp.Holds(r.preampLevel);
}

IFOutputSetting LimitIFOutput(int deviceType, double inputFreq, double outputFreq, int inputAtten, int outputGain) {
    IFOutputSetting s{inputFreq, 0.0, inputAtten, outputGain, qorNoError};
    bool held = false;
    double sign = outputFreq < 0.0 ? -1.0 : 1.0;
    double output = std::fabs(outputFreq);
    held |= Hold(s.inputFreq, kIFInputLowest, kIFInputHighest);
    if (s.inputFreq < kIFInvertedFrom && sign < 0.0) {
        sign = 1.0;
        held = true;
    }
    // The output lies in the pass band of the unit's IF output filter.
    if (deviceType == DeviceTypeOrskA)
        held |= Hold(output, 3.4e7, 3.8e7);
    else
        held |= Hold(output, 6.1e7, 6.5e7);
    held |= Hold(s.inputAtten, 0, kIFAttenHighest);
    held |= Hold(s.outputGain, 0, kIFGainHighest);
    s.ifOffset = sign * output;
    if (held) s.status = qorParameterClamped;
    return s;
}

qorStatus SelfTest(Device& d, SelfTestResults& results) {
    d.Abort();
    AnalyzerLink& link = d.m_link;
    const DeviceFamily& family = link.Family();
    if (!family.Is(DeviceTypeVelmB) && !family.Is(DeviceTypeOrskB)) return qorInvalidDeviceErr;
    TuningPlan& plan = link.Plan();
    LoTuning& a = plan.recordA;
    LoTuning& b = plan.recordB;
    const bool orsk = family.IsOrsk();

    // A capture whose sync or data does not come leaves zeros, and so a level
    // out of every window.
    smart_array<Ipp64fc> capture(kSelfTestSamples);
    ippsZero_64fc(capture.get(), kSelfTestSamples);
    auto measure = [&] {
        link.CaptureBlock(capture.get(), kSelfTestSamples, kSelfTestLimitMs);
        return SelfTestLevelDb(capture.get(), kSelfTestSamples);
    };
    // Both tunings of 140 MHz in `band`: A on the high IF, B on the low IF.
    auto planBoth = [&](int band) {
        if (orsk) a.path = b.path = kSelfTestPath;
        plan.PlanTuning(kSelfTestFrequency, kSelfTestHighIf, true, -1, a, band);
        plan.PlanTuning(kSelfTestFrequency, kSelfTestLowIf, true, a.modulus, b, band);
    };
    // One path: IF (0 high, 1 low) and band filter, the tuning (band 0 through
    // the outboard divider), the attenuator.
    auto setPath = [&](int lowIf, int band, const LoTuning& tuning, int attenSteps) {
        link.SetPathFilter(lowIf, band);
        if (orsk) link.SetOrskPath(tuning.path);
        if (band == 1)
            link.ProgramSynth(tuning.integer, tuning.fraction, tuning.modulus, tuning.dividerLog2);
        else
            link.ProgramSynthDivided(tuning.integer, tuning.fraction, tuning.modulus, tuning.dividerLog2);
        link.SetAttenSteps(attenSteps);
    };

    link.SetSelfTestSource(true);
    os::SleepMs(kSourceSettleMs);
    link.SetPathFilter(0, 1);
    link.SetPreamp(false);
    link.SetGainRegisters(0x80, 0);

    planBoth(1);
    setPath(0, 1, a, 2);
    results.highBandLevel = measure();

    planBoth(0);
    setPath(0, 0, a, 2);
    results.lowBandLevel = measure();
    setPath(0, 0, a, 3);
    results.attenuatorDelta = measure() - results.lowBandLevel;
    setPath(1, 0, b, 3);
    results.lowIfLevel = measure();
    // Only type 2 has a preamplifier: on type 4 this repeats the low band at 3 steps.
    link.SetPreamp(true);
    setPath(0, 0, a, 3);
    results.preampLevel = measure();

    link.SetPreamp(false);
    link.SetSelfTestSource(false);
    os::SleepMs(kSourceSettleMs);
    JudgeSelfTest(family.Type(), results);
    return qorNoError;
}

qorStatus SetTimebase(Device& d, int timebase) {
    d.Abort();
    AnalyzerLink& link = d.m_link;
    if (link.ReferenceLocked()) return qorNoError;
    switch (timebase) {
        case 2:
            if (link.Family().Is(DeviceTypeOrskA)) return qorInvalidDeviceErr;
            if (!link.SelectExternalReference()) return qorExternalReferenceNotFound;
            // The external reference is exact: a correction of the internal one no longer applies.
            d.m_calibration.corr->timebaseFactor = 1.0;
            return qorNoError;
        case 1:
            if (!link.Family().IsOrsk()) return qorInvalidDeviceErr;
            link.EnableReferenceOutput();
            return qorNoError;
        default:
            return qorInvalidParameterErr;
    }
}

qorStatus ConfigIFOutput(Device& d, double inputFreq, double outputFreq, int inputAtten, int outputGain) {
    if (!d.m_link.Family().IsOrsk()) return qorInvalidDeviceErr;
    d.Abort();
    const IFOutputSetting s = LimitIFOutput(d.DeviceType(), inputFreq, outputFreq, inputAtten, outputGain);
    const int band = d.m_calibration.corr->BandOf(s.inputFreq);
    d.m_link.TuneIFOutput(s.inputFreq, s.ifOffset, s.inputAtten, s.outputGain, band);
    return s.status;
}

bool IsTimebaseCorrection(double correction) {
    return correction >= 0.999 && correction <= 1.001;  // false for NaN
}

qorStatus AdjustTimebase(Device& d, double correction) {
    if (correction != 0.0 && !IsTimebaseCorrection(correction)) return qorInvalidParameterErr;
    // The first 8 bytes are not ours: they go back as they came.
    uint8_t area[16] = {};
    d.m_link.ReadUserArea(area);
    std::memcpy(area + 8, &correction, sizeof correction);  // little-endian IEEE 754, as the host
    d.m_link.WriteUserArea(area);
    // 0.0 stands for no stored correction: the running factor stays.
    if (correction != 0.0) d.m_calibration.corr->timebaseFactor = correction;
    return qorNoError;
}

}  // namespace qor
