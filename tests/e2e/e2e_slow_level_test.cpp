// A CW tone measured by the narrow-span sweep through the C API: its peak
// lies within one bin of the tone and within 0.5 dB of the injected level,
// across both families and their bands, levels from -100 to 0 dBm,
// automatic and manual attenuator and gain, the preamplifier, both RBW
// shapes, both detectors, every video unit, RBWs from 1 Hz to 120 kHz and
// with image rejection.
#include <gtest/gtest.h>

#include <cmath>

#include "e2e_bench.h"

namespace {

using e2e::Measure;
using e2e::Sweep;
using e2e::Trace;

constexpr unsigned kVelm = 21000001, kVelmB = 22000002, kOrskA = 23000003, kOrskB = 24000004;

const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelm, 1, {{300e6, -20.0}, {3.1e9, -70.0}}, -160.0, false},
        {kVelmB, 2,
         {{1.7e6, -10.0}, {50.3e6, -60.0}, {700.02e6, -40.0}, {1.0e9, -30.0}, {2.2e9, -100.0}, {4.3e9, 0.0}},
         -160.0, true},
        {kOrskA, 3, {{6.0e9, -30.0}, {11.0e9, -50.0}}, -160.0, false},
        {kOrskB, 4,
         {{100.3e6, -50.0}, {3.0e9, -20.0}, {5.0e9, -35.0}, {7.5e9, -45.0}, {9.0e9, -25.0}, {12.0e9, -60.0}},
         -160.0, true},
    };
    return units;
}

using SlowLevel = e2e::SceneSuite<Scene>;


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

TEST_F(SlowLevel, ToneAtItsFrequencyAndLevel) {
    const ToneCase cases[] = {
        {"velmB 1 GHz", kVelmB, 1.0e9, -30.0, With(100e3, 1e3)},
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
        const Trace t = Measure(devices_[c.serial], sweep);
        ASSERT_EQ(t.initiate, c.initiate);
        ASSERT_EQ(t.get, qorNoError);
        if (c.bin > 0.0) {
            EXPECT_DOUBLE_EQ(t.binSize, c.bin);
        }
        ASSERT_GT(t.length, 0);
        const int peak = t.PeakBin();
        EXPECT_LE(std::fabs(t.FrequencyOf(peak) - c.tone), t.binSize) << "peak at " << t.FrequencyOf(peak);
        EXPECT_NEAR(t.max[peak], c.level, 0.5);
        EXPECT_NEAR(t.min[peak], c.level, 0.5);
    }
}

// The trace's frequencies come from qorQuerySweepInfo: the bins of the FFT
// itself, centred on the configured center.
TEST_F(SlowLevel, SweepInfoFollowsTheFft) {
    Sweep sweep = With(100e3, 1e3);
    sweep.center = 1.0e9;
    const Trace t = Measure(devices_[kVelmB], sweep);
    ASSERT_EQ(t.initiate, qorNoError);
    // 1 kHz in the flat-top shape: 2048 points.
    EXPECT_DOUBLE_EQ(t.binSize, 486111.1111111111 / 2048);
    EXPECT_EQ(t.length, static_cast<int>(100e3 / t.binSize));
    EXPECT_DOUBLE_EQ(t.startFreq, 1.0e9 - (t.length / 2) * t.binSize);
}

}  // namespace
