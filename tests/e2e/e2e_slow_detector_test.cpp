// Detectors and video units of the narrow sweep on a noise-like scene, and
// the millivolt scale: the min/max detector spreads around the average, the
// average detector gives one trace, and the video units average what they
// name (on noise the mean of dB lies 2.51 dB and the mean of magnitudes
// 1.05 dB below the mean power).
#include <gtest/gtest.h>

#include <cmath>

#include "e2e_bench.h"

namespace {

using e2e::Measure;
using e2e::Sweep;
using e2e::Trace;

constexpr unsigned kVelmB = 42000002;
constexpr double kQuiet = 2.0e9;  // nothing but noise within a few MHz
constexpr double kToneFrequency = 2.3e9;

const std::vector<e2e::BenchUnit>& Scene() {
    // A noise floor high enough to be noise-like after the 16-bit sampling.
    static const std::vector<e2e::BenchUnit> units = {{kVelmB, 2, {{kToneFrequency, -30.0}}, -140.0}};
    return units;
}

class SlowDetectors : public e2e::SceneSuite<Scene> {
protected:

    static Trace Noise(int detector, int units, double vbw) {
        Sweep sweep;
        sweep.center = kQuiet;
        sweep.span = 150e3;
        sweep.rbw = 1e3;
        sweep.vbw = vbw;
        sweep.refLevel = -50.0;
        sweep.detector = detector;
        sweep.units = units;
        const Trace t = Measure(devices_[kVelmB], sweep);
        EXPECT_EQ(t.get, qorNoError);
        return t;
    }
};


TEST_F(SlowDetectors, MinMaxSpreadsAroundTheAverage) {
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
TEST_F(SlowDetectors, VideoBandwidthNarrowsTheSpread) {
    const Trace wide = Noise(0, 2, 1e3);
    const Trace narrow = Noise(0, 2, 100.0);
    const double wideSpread = Trace::MeanDb(wide.max) - Trace::MeanDb(wide.min);
    const double narrowSpread = Trace::MeanDb(narrow.max) - Trace::MeanDb(narrow.min);
    EXPECT_LT(narrowSpread, wideSpread / 2);
    EXPECT_GT(narrowSpread, 0.0);
}

TEST_F(SlowDetectors, VideoUnitsAverageWhatTheyName) {
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

TEST_F(SlowDetectors, MillivoltScaleOfATone) {
    Sweep sweep;
    sweep.center = kToneFrequency + 20e3;
    sweep.span = 100e3;
    sweep.rbw = 1e3;
    const Trace dbm = Measure(devices_[kVelmB], sweep);
    sweep.scale = 1;
    const Trace mv = Measure(devices_[kVelmB], sweep);
    ASSERT_EQ(mv.get, qorNoError);
    const int peak = mv.PeakBin();
    EXPECT_EQ(peak, dbm.PeakBin());
    // -30 dBm in 50 ohm is 7.07 mV; within 0.5 dB.
    EXPECT_NEAR(20.0 * std::log10(mv.max[peak] / 7.0711), 0.0, 0.5);
    EXPECT_NEAR(mv.max[peak], std::pow(10.0, (dbm.max[peak] + 46.9897) / 20.0), 1e-3 * mv.max[peak]);
    for (int i = 0; i < mv.length; ++i) EXPECT_GT(mv.min[i], 0.0);
}

}  // namespace
