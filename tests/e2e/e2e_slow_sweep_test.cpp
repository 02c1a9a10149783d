// The narrow-span sweep through the C API: CW tones within one bin and 0.5 dB
// at every band, level, gain setting, shape, detector, video unit and RBW;
// detectors and video units on noise; image rejection.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "e2e_bench.h"

namespace {

using e2e::Measure;
using e2e::Sweep;
using e2e::Trace;

constexpr double kRate = 486111.1111111111;
constexpr unsigned kVelm = 21000001, kVelmB = 22000002, kOrskA = 23000003, kOrskB = 24000004;
constexpr unsigned kNoisy = 42000002, kVelmReject = 32000002, kOrskReject = 34000004;
constexpr double kQuiet = 2.0e9;  // nothing but noise within a few MHz of the noisy unit
constexpr double kNoisyTone = 2.3e9;
constexpr double kHighIf = 10694444.444444444, kLowIf = 2916666.6666666667;
constexpr double kVelmCenter = 1.5e9, kOrskCenter = 5.0e9;

// The rejection units: a real tone 25 kHz above the centre and the image of
// the first pass (high IF, LO above), which shows 20 kHz below the centre on
// the 4.4 GHz unit, and 60 kHz below on the 12.4 GHz unit: that one measures
// in band 2, behind its first mixer, where images come from below the signal.
// The 4.4 GHz unit also sees the image of its second pass (low IF), which
// would show 40 kHz below the centre. The noisy unit's floor is high enough
// to be noise-like after the 16-bit sampling.
const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelm, 1, {{300e6, -20.0}, {3.1e9, -70.0}}, -160.0, false},
        {kVelmB, 2,
         {{1.7e6, -10.0}, {50.3e6, -60.0}, {700.02e6, -40.0}, {1.0e9, -30.0}, {2.2e9, -100.0}, {4.3e9, 0.0}}},
        {kOrskA, 3, {{6.0e9, -30.0}, {11.0e9, -50.0}}, -160.0, false},
        {kOrskB, 4,
         {{100.3e6, -50.0}, {3.0e9, -20.0}, {5.0e9, -35.0}, {7.5e9, -45.0}, {9.0e9, -25.0}, {12.0e9, -60.0}}},
        {kNoisy, 2, {{kNoisyTone, -30.0}}, -140.0},
        {kVelmReject, 2,
         {{kVelmCenter + 25e3, -30.0}, {kVelmCenter + 2 * kHighIf + 20e3, -40.0},
          {kVelmCenter + 2 * kLowIf + 40e3, -40.0}}},
        {kOrskReject, 4, {{kOrskCenter + 25e3, -30.0}, {kOrskCenter - 2 * kHighIf + 60e3, -40.0}}},
    };
    return units;
}

class SlowSweep : public e2e::SceneSuite<Scene> {
protected:
    static Trace Noise(int detector, int units, double vbw) {
        Sweep sweep;
        sweep.center = kQuiet;
        sweep.span = 150e3;
        sweep.vbw = vbw;
        sweep.refLevel = -50.0;
        sweep.detector = detector;
        sweep.units = units;
        const Trace t = Measure(devices_.at(kNoisy), sweep);
        EXPECT_EQ(t.get, qorNoError);
        return t;
    }
    // Strongest reading farther than 10 kHz from the real tone.
    static double Spurious(const Trace& t, double tone) {
        double highest = -400.0;
        for (int i = 0; i < t.length; ++i) {
            if (std::fabs(t.FrequencyOf(i) - tone) > 10e3) highest = std::max(highest, t.max[static_cast<size_t>(i)]);
        }
        return highest;
    }
};

struct ToneCase {
    const char* name;
    unsigned serial;
    double tone, level;
    Sweep sweep;  // center is set from the tone: 17 % of the span below it
    double bin = 0.0;  // when set, the bin width the unit's sample clock gives
    qorStatus initiate = qorNoError;
};

Sweep With(double span, double rbw, void (*adjust)(Sweep&) = nullptr) {
    Sweep s;
    s.span = span;
    s.rbw = rbw;
    if (adjust) adjust(s);
    return s;
}

TEST_F(SlowSweep, ToneAtItsFrequencyAndLevel) {
    const ToneCase cases[] = {
        // 1 kHz in the flat-top shape: 2048 points.
        {"velmB 1 GHz", kVelmB, 1.0e9, -30.0, With(100e3, 1e3), kRate / 2048},
        {"velmB low band, center below 5 MHz", kVelmB, 1.7e6, -10.0,
         With(150e3, 3e3, [](Sweep& s) { s.refLevel = 0.0; })},
        {"velmB low band gaussian", kVelmB, 50.3e6, -60.0,
         With(20e3, 300.0, [](Sweep& s) { s.refLevel = -40.0; s.shape = 2; })},
        {"velmB -100 dBm, automatic preamplifier, average", kVelmB, 2.2e9, -100.0,
         With(1e3, 10.0, [](Sweep& s) { s.refLevel = -50.0; s.detector = 1; })},
        {"velmB 0 dBm", kVelmB, 4.3e9, 0.0, With(200e3, 10e3, [](Sweep& s) { s.refLevel = 5.0; })},
        {"velmB manual 2/1, voltage units", kVelmB, 1.0e9, -30.0,
         With(200e3, 30e3, [](Sweep& s) { s.atten = 2; s.gain = 1; s.units = 1; })},
        {"velmB manual 0/2 with preamplifier, power units", kVelmB, 2.2e9, -100.0,
         With(3e3, 30.0, [](Sweep& s) { s.atten = 0; s.gain = 2; s.preamp = true; s.units = 2; })},
        {"velmB 1 Hz, manual 1/2", kVelmB, 50.3e6, -60.0,
         With(60.0, 1.0, [](Sweep& s) { s.atten = 1; s.gain = 2; })},
        {"velmB 120 kHz", kVelmB, 1.0e9, -30.0, With(200e3, 120e3)},
        {"velmB 10 Hz gaussian, sample units (streamed capture)", kVelmB, 1.0e9, -30.0,
         With(1e3, 10.0, [](Sweep& s) { s.shape = 2; s.units = 3; })},
        {"velmB video average of 17 frames", kVelmB, 1.0e9, -30.0, With(100e3, 1e3, [](Sweep& s) { s.vbw = 300.0; })},
        {"velmB rejection, second pass on the low IF", kVelmB, 1.0e9, -30.0,
         With(100e3, 1e3, [](Sweep& s) { s.reject = true; })},
        {"velmB rejection below 5 MHz, both passes high", kVelmB, 1.7e6, -10.0,
         With(100e3, 1e3, [](Sweep& s) { s.reject = true; s.refLevel = 0.0; })},
        {"velmB rejection at 5 dBm reference, both passes high", kVelmB, 4.3e9, 0.0,
         With(100e3, 1e3, [](Sweep& s) { s.reject = true; s.refLevel = 5.0; })},
        {"velm", kVelm, 300e6, -20.0, With(100e3, 1e3)},
        {"velm manual 0/2", kVelm, 3.1e9, -70.0, With(100e3, 1e3, [](Sweep& s) { s.atten = 0; s.gain = 2; })},
        {"orskA band 2", kOrskA, 6.0e9, -30.0, With(100e3, 1e3)},
        {"orskA band 5 gaussian, manual 1/1", kOrskA, 11.0e9, -50.0,
         With(100e3, 3e3, [](Sweep& s) { s.atten = 1; s.gain = 1; s.shape = 2; })},
        {"orskB band 0", kOrskB, 100.3e6, -50.0, With(100e3, 1e3, [](Sweep& s) { s.refLevel = -30.0; })},
        {"orskB band 1 with rejection", kOrskB, 3.0e9, -20.0, With(100e3, 1e3, [](Sweep& s) { s.reject = true; })},
        {"orskB band 2 with rejection, average", kOrskB, 5.0e9, -35.0,
         With(100e3, 1e3, [](Sweep& s) { s.reject = true; s.detector = 1; })},
        {"orskB band 3, voltage units", kOrskB, 7.5e9, -45.0, With(20e3, 300.0, [](Sweep& s) { s.units = 1; })},
        {"orskB band 4, manual 3/0", kOrskB, 9.0e9, -25.0, With(100e3, 1e3, [](Sweep& s) { s.atten = 3; s.gain = 0; })},
        {"orskB band 5 gaussian, power units", kOrskB, 12.0e9, -60.0,
         With(100e3, 1e3, [](Sweep& s) { s.refLevel = -40.0; s.shape = 2; s.units = 2; })},
        // Within 100 kHz of a multiple of 70 MHz the unit samples at 468750 Hz, and the bins shrink with it.
        {"velmB alternate sample clock near 700 MHz", kVelmB, 700.02e6, -40.0, With(100e3, 1e3), 468750.0 / 2048},
        // RBWs beyond the narrow sweep's range are held to it.
        {"velmB 200 kHz held to the range", kVelmB, 1.0e9, -30.0, With(200e3, 200e3), 0.0, qorBandwidthClamped},
    };
    for (const ToneCase& c : cases) {
        SCOPED_TRACE(c.name);
        Sweep sweep = c.sweep;
        sweep.center = c.tone + 0.17 * sweep.span;
        const Trace t = Measure(devices_.at(c.serial), sweep);
        ASSERT_EQ(t.initiate, c.initiate);
        ASSERT_EQ(t.get, qorNoError);
        ASSERT_GT(t.length, 0);
        if (c.bin > 0.0) {
            // The bins of the FFT itself, centred on the configured center.
            EXPECT_DOUBLE_EQ(t.binSize, c.bin);
            EXPECT_EQ(t.length, static_cast<int>(sweep.span / t.binSize));
            EXPECT_DOUBLE_EQ(t.startFreq, sweep.center - (t.length / 2) * t.binSize);
        }
        const int peak = t.PeakBin();
        EXPECT_LE(std::fabs(t.FrequencyOf(peak) - c.tone), t.binSize) << "peak at " << t.FrequencyOf(peak);
        EXPECT_NEAR(t.max[peak], c.level, 0.5);
        EXPECT_NEAR(t.min[peak], c.level, 0.5);
    }
}

TEST_F(SlowSweep, MinMaxSpreadsAroundTheAverage) {
    const Trace minMax = Noise(0, 0, 1e3);
    const Trace average = Noise(1, 0, 1e3);
    int spread = 0;
    for (int i = 0; i < minMax.length; ++i) {
        EXPECT_LE(minMax.min[i], minMax.max[i]);
        spread += minMax.min[i] < minMax.max[i];
        EXPECT_EQ(average.min[i], average.max[i]);
    }
    EXPECT_EQ(spread, minMax.length);
    const double low = Trace::MeanDb(minMax.min), mean = Trace::MeanDb(average.min), high = Trace::MeanDb(minMax.max);
    EXPECT_LT(low + 1.0, mean);
    EXPECT_LT(mean + 1.0, high);
}

// A longer video average narrows the spread of the min/max detector.
TEST_F(SlowSweep, VideoBandwidthNarrowsTheSpread) {
    const Trace wide = Noise(0, 2, 1e3);
    const Trace narrow = Noise(0, 2, 100.0);
    const double wideSpread = Trace::MeanDb(wide.max) - Trace::MeanDb(wide.min);
    const double narrowSpread = Trace::MeanDb(narrow.max) - Trace::MeanDb(narrow.min);
    EXPECT_LT(narrowSpread, wideSpread / 2);
    EXPECT_GT(narrowSpread, 0.0);
}

// On noise the mean of dB lies 2.51 dB and the mean of magnitudes 1.05 dB below the mean power.
TEST_F(SlowSweep, VideoUnitsAverageWhatTheyName) {
    // The average detector over a long block: 30 x 8 frames and more.
    const double vbw = 1e3 / 30;
    const double log = Trace::MeanDb(Noise(1, 0, vbw).min);
    const double voltage = Trace::MeanDb(Noise(1, 1, vbw).min);
    const double power = Trace::MeanDb(Noise(1, 2, vbw).min);
    // One frame without processing: single power readings, whose mean in
    // dB carries the same 2.51 dB as the log average. One frame is a small
    // sample, and which stretch of noise a sweep meets depends on timing: the
    // mean of 32 sweeps.
    double sample = 0.0;
    for (int k = 0; k < 32; ++k) sample += Trace::MeanDb(Noise(0, 3, vbw).min) / 32;
    EXPECT_NEAR(power - log, 10.0 * std::log10(std::exp(0.5772156649)), 0.25);
    EXPECT_NEAR(power - voltage, 10.0 * std::log10(4.0 / M_PI), 0.2);
    EXPECT_NEAR(sample, log, 0.5);
}

TEST_F(SlowSweep, MillivoltScaleOfATone) {
    Sweep sweep;
    sweep.center = kNoisyTone + 20e3;
    sweep.span = 100e3;
    sweep.rbw = 1e3;
    const Trace dbm = Measure(devices_.at(kNoisy), sweep);
    sweep.scale = 1;
    const Trace mv = Measure(devices_.at(kNoisy), sweep);
    ASSERT_EQ(mv.get, qorNoError);
    const int peak = mv.PeakBin();
    EXPECT_EQ(peak, dbm.PeakBin());
    // -30 dBm in 50 ohm is 7.07 mV; within 0.5 dB.
    EXPECT_NEAR(20.0 * std::log10(mv.max[peak] / 7.0711), 0.0, 0.5);
    EXPECT_NEAR(mv.max[peak], std::pow(10.0, (dbm.max[peak] + 46.9897) / 20.0), 1e-3 * mv.max[peak]);
    for (int i = 0; i < mv.length; ++i) EXPECT_GT(mv.min[i], 0.0);
}

TEST_F(SlowSweep, ImagesGoRealTonesStay) {
    for (const auto& [serial, center] : {std::pair{kVelmReject, kVelmCenter}, std::pair{kOrskReject, kOrskCenter}}) {
        SCOPED_TRACE(serial);
        Sweep sweep;
        sweep.center = center;
        sweep.span = 150e3;
        sweep.rbw = 1e3;
        const Trace open = Measure(devices_.at(serial), sweep);
        sweep.reject = true;
        const Trace rejected = Measure(devices_.at(serial), sweep);
        ASSERT_EQ(open.get, qorNoError);
        ASSERT_EQ(rejected.get, qorNoError);

        const double tone = center + 25e3;
        // Without rejection the first pass's image shows near its own level...
        EXPECT_GT(Spurious(open, tone), -45.0);
        // ...with it, nothing is left of it but noise: at least 40 dB down.
        EXPECT_LT(Spurious(rejected, tone), -40.0 - 40.0);
        const int peak = rejected.PeakBin();
        EXPECT_LE(std::fabs(rejected.FrequencyOf(peak) - tone), rejected.binSize);
        EXPECT_NEAR(rejected.max[static_cast<size_t>(peak)], -30.0, 0.5);
    }
}

}  // namespace
