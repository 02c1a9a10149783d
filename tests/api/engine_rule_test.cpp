// Which sweep engine the settings and the device type choose, and the holds
// that come with it.
#include <gtest/gtest.h>

#include "engine_rule.h"

namespace {

using qor::SweepEngineKind;

qor::Settings Sweep(double start, double stop, double rbw, bool reject = false) {
    qor::Settings s;
    s.start = start;
    s.stop = stop;
    s.span = stop - start;
    s.center = (start + stop) / 2;
    s.rbw = rbw;
    s.vbw = rbw;
    s.reject = reject;
    return s;
}

struct RuleCase {
    const char* what;
    qor::Settings settings;
    int type;
    SweepEngineKind kind;
    double rbw;
    bool limited;
};

TEST(EngineRule, Boundaries) {
    const RuleCase cases[] = {
        {"broadband corner", Sweep(2e8, 4e8, 300000.1), 2, SweepEngineKind::Broadband, 300000.1, false},
        {"rbw exactly 300 kHz", Sweep(2e8, 4e8, 300000.0), 2, SweepEngineKind::Fast, 250000.0, true},
        {"stop 3.99e8", Sweep(2e8, 3.99e8, 300000.1), 2, SweepEngineKind::Fast, 250000.0, true},
        {"start below 2e8", Sweep(1.99e8, 5e8, 1e6), 4, SweepEngineKind::Fast, 250000.0, true},
        {"span 200999", Sweep(1e9, 1e9 + 200999, 1000.0), 2, SweepEngineKind::Slow, 1000.0, false},
        {"span 201000", Sweep(1e9, 1e9 + 201000, 1000.0), 2, SweepEngineKind::Midrange, 1000.0, false},
        {"type 2 span 9.8e7", Sweep(1e9, 1.098e9, 10000.0), 2, SweepEngineKind::Midrange, 10000.0, false},
        {"type 2 span 9.9e7", Sweep(1e9, 1.099e9, 10000.0), 2, SweepEngineKind::Fast, 10000.0, false},
        {"type 1 never midrange", Sweep(1e9, 1e9 + 201000, 10000.0), 1, SweepEngineKind::Fast, 10000.0, false},
        {"type 3 above 4 GHz", Sweep(4.1e9, 4.2e9 - 2e7, 10000.0), 3, SweepEngineKind::Fast, 10000.0, false},
        {"type 4 above 4 GHz", Sweep(4.1e9, 4.2e9 - 2e7, 10000.0), 4, SweepEngineKind::Midrange, 10000.0, false},
        {"reject below 16 MHz", Sweep(1e6, 2e6, 10000.0, true), 2, SweepEngineKind::Fast, 10000.0, false},
        {"no reject below 16 MHz", Sweep(1e6, 2e6, 10000.0, false), 2, SweepEngineKind::Midrange, 10000.0, false},
        {"fast raises rbw", Sweep(1e9, 2e9, 5000.0), 2, SweepEngineKind::Fast, 6500.0, true},
        {"slow lowers rbw", Sweep(1e9, 1e9 + 1e5, 200000.0), 2, SweepEngineKind::Slow, 120000.0, true},
        {"midrange lowers rbw", Sweep(1e9, 1.001e9, 1e6), 2, SweepEngineKind::Midrange, 250000.0, true},
        {"midrange raises rbw", Sweep(1e9, 1.001e9, 10.0), 2, SweepEngineKind::Midrange, 30.0, true},
    };
    for (const RuleCase& c : cases) {
        const qor::SweepEngineChoice choice = qor::ChooseSweepEngine(c.settings, c.type);
        EXPECT_EQ(choice.kind, c.kind) << c.what;
        EXPECT_DOUBLE_EQ(choice.rbw, c.rbw) << c.what;
        EXPECT_EQ(choice.rbwLimited, c.limited) << c.what;
    }
}

TEST(EngineRule, VideoRatioLimits) {
    bool limited = false;
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Fast, 1e5, 100.0, 64, &limited), 4);
    EXPECT_TRUE(limited);
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Midrange, 1e5, 100.0, 128, &limited), 512);
    EXPECT_TRUE(limited);
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Slow, 1e5, 100.0, 128, &limited), 1000);
    EXPECT_FALSE(limited);
    // A capture of minutes is held to 8.6 s; an RBW that needs more keeps its one frame.
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Slow, 1e4, 0.1, 256, &limited), (1 << 22) / 256);
    EXPECT_TRUE(limited);
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Slow, 0.1, 0.1, 1 << 23, &limited), 1);
    EXPECT_FALSE(limited);
    EXPECT_EQ(qor::RbwToVbwRatio(SweepEngineKind::Fast, 3000.0, 2000.0, 64, &limited), 2);  // 1.5 rounds up
    EXPECT_FALSE(limited);
}

TEST(EngineRule, RealTimeSpanAndBandwidth) {
    qor::Settings s = Sweep(1e9, 1e9 + 1e5, 50.0);
    EXPECT_EQ(qor::ChooseRealTime(s).status, qorBandwidthClamped);
    EXPECT_EQ(qor::ChooseRealTime(s).rbw, 100.0);
    s.rbw = 20000.0;
    EXPECT_EQ(qor::ChooseRealTime(s).rbw, 10000.0);
    s.rbw = 1000.0;
    EXPECT_EQ(qor::ChooseRealTime(s).status, qorNoError);
    s.span = 999.0;
    EXPECT_EQ(qor::ChooseRealTime(s).status, qorInvalidParameterErr);
    s.span = 250000.1;
    EXPECT_EQ(qor::ChooseRealTime(s).status, qorInvalidParameterErr);
}

}  // namespace
