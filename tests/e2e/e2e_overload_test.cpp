// An IF overload: a tone far above the reference level drives the converter
// to its limits, and the retrieval says so with status 2 in every engine that
// reads samples; a tone below the reference level does not.
#include <gtest/gtest.h>

#include <vector>

#include "e2e_bench.h"

namespace {

constexpr unsigned kVelm = 44000002, kOrskA = 44000003, kOrskB = 44000004;
constexpr double kStrong = 0.0;  // dBm: 20 dB above the reference level
constexpr double kWeak = -23.0;  // 3 dB below it
constexpr double kReference = -20.0;

const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelm, 2, {{100.02e6, kStrong}, {300.02e6, kWeak}}},
        {kOrskA, 3, {{1000.3e6, kStrong}, {2000.3e6, kWeak}}, -160.0, false},
        {kOrskB, 4, {{500e6, kStrong}, {1500e6, kWeak}}},
    };
    return units;
}

using Overload = e2e::SceneSuite<Scene>;

TEST_F(Overload, AToneAboveTheReferenceLevelIsReportedInEveryEngineThatReadsSamples) {
    struct Case {
        const char* engine;
        unsigned serial;
        double start, stop, rbw;  // no RBW: the I/Q stream
        bool strong;
    };
    const Case cases[] = {
        {"slow", kVelm, 99.97e6, 100.07e6, 1e3, true},  {"slow", kVelm, 299.97e6, 300.07e6, 1e3, false},
        {"midrange", kOrskA, 995e6, 1005e6, 3e3, true}, {"midrange", kOrskA, 1995e6, 2005e6, 3e3, false},
        {"fast", kOrskB, 400e6, 600e6, 100e3, true},    {"fast", kOrskB, 1400e6, 1600e6, 100e3, false},
        {"iq", kVelm, 99.95e6, 100.05e6, 0.0, true},    {"iq", kVelm, 299.95e6, 300.05e6, 0.0, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.engine << (c.strong ? " strong" : " weak"));
        e2e::Sweep sweep = e2e::Between(c.start, c.stop, c.rbw);
        sweep.refLevel = kReference;
        const int device = devices_.at(c.serial);
        e2e::Trace t;
        std::vector<float> samples(2 * 2048);
        if (c.rbw > 0.0) {
            t = e2e::Start(device, sweep);
            ASSERT_GE(t.initiate, 0);
        } else {
            qorConfigCenterSpan(device, sweep.center, 100e3);
            qorConfigLevel(device, kReference);
            ASSERT_EQ(qorConfigIQ(device, 8, 50e3), qorNoError);
            ASSERT_EQ(qorInitiate(device, ModeIQ), qorNoError);
        }
        // The mark belongs to the unit, not to one result: a free-running
        // engine may raise it for the next sweep before the first get has
        // read it. So a strong tone must be reported by some of the gets, a
        // weak one by none.
        int reported = 0;
        for (int k = 0; k < (c.rbw > 0.0 ? 3 : 4); ++k) {
            IQPacket packet{samples.data(), 2048, 0, 0, 0, 0, 0};
            const qorStatus got = c.rbw > 0.0 ? e2e::Take(device, t) : qorGetIQData(device, &packet);
            ASSERT_TRUE(got == qorNoError || got == qorCompression) << got;
            reported += got == qorCompression;
        }
        qorAbort(device);
        if (c.strong) EXPECT_GT(reported, 0);
        else EXPECT_EQ(reported, 0);
    }
}

}  // namespace
