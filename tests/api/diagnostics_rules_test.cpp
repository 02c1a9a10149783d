// The rules of the diagnostics calls that need no hardware: the IF output's
// limits and the self-test's level and windows.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "diagnostics.h"

namespace {

using qor::IFOutputSetting;
using qor::LimitIFOutput;

TEST(IFOutputLimits, HeldToTheUnitsRanges) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        int type;
        double input, output;
        int atten, gain;
        IFOutputSetting expected;
    } cases[] = {
        // Clamps below the edges are measured in the end-to-end tests. The edges themselves are inside.
        {3, 1.25e8, 3.4e7, 0, 0, {1.25e8, 3.4e7, 0, 0, qorNoError}},
        {4, 1.3e10, -6.5e7, 30, 60, {1.3e10, -6.5e7, 30, 60, qorNoError}},
        {4, 2.01e8, -6.3e7, 0, 0, {2.01e8, -6.3e7, 0, 0, qorNoError}},
        // Just below 201 MHz the LO may not go above the input.
        {4, 2.0e8, -6.3e7, 0, 0, {2.0e8, 6.3e7, 0, 0, qorParameterClamped}},
        {4, 2e10, -7e7, -1, -1, {1.3e10, -6.5e7, 0, 0, qorParameterClamped}},
        {3, 1e9, 3.9e7, 0, 0, {1e9, 3.8e7, 0, 0, qorParameterClamped}},
        // Nonsense is held to the low edge, never passed on.
        {4, nan, nan, 0, 0, {1.25e8, 6.1e7, 0, 0, qorParameterClamped}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.type << " " << c.input << " " << c.output);
        const IFOutputSetting s = LimitIFOutput(c.type, c.input, c.output, c.atten, c.gain);
        EXPECT_EQ(s.inputFreq, c.expected.inputFreq);
        EXPECT_EQ(s.ifOffset, c.expected.ifOffset);
        EXPECT_EQ(s.inputAtten, c.expected.inputAtten);
        EXPECT_EQ(s.outputGain, c.expected.outputGain);
        EXPECT_EQ(s.status, c.expected.status);
    }
}

TEST(SelfTestRules, LevelLeavesOutTheSettlingSamples) {
    std::vector<Ipp64fc> capture(4096, Ipp64fc{0.06, 0.08});  // |x|^2 = 0.01: -20 dB
    for (int i = 0; i < 1024; ++i) capture[i] = {1.0, 0.0};
    EXPECT_NEAR(qor::SelfTestLevelDb(capture.data(), 4096), -20.0, 1e-12);
}

TEST(SelfTestRules, LevelsPassOnlyStrictlyInsideTheirWindows) {
    SelfTestResults inside{false, false, false, false, false, -34.7, -33.6, -5.0, -27.2, -20.5};
    qor::JudgeSelfTest(DeviceTypeVelmB, inside);
    EXPECT_TRUE(inside.highBandPass && inside.lowBandPass && inside.attenuatorPass && inside.lowIfPass &&
                inside.preampPass);

    // Type 4's windows, each level on an edge or beyond; a silent capture reads -inf.
    const double silent = -std::numeric_limits<double>::infinity();
    SelfTestResults edges{true, true, true, true, true, -18.0, -35.0, -7.9, silent, -33.0};
    qor::JudgeSelfTest(DeviceTypeOrskB, edges);
    EXPECT_FALSE(edges.highBandPass || edges.lowBandPass || edges.attenuatorPass || edges.lowIfPass ||
                 edges.preampPass);

    // A level inside type 2's window but outside type 4's.
    SelfTestResults orsk{false, false, false, false, false, -34.7, -33.6, -10.0, -27.2, -40.0};
    qor::JudgeSelfTest(DeviceTypeOrskB, orsk);
    EXPECT_FALSE(orsk.highBandPass);
    EXPECT_TRUE(orsk.lowBandPass && orsk.attenuatorPass && orsk.lowIfPass && orsk.preampPass);
}

}  // namespace
