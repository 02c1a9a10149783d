// An IF overload: a tone far above the reference level drives the converter
// to its limits, and the retrieval says so with status 2 in every engine that
// reads samples; a tone below the reference level does not.
#include <gtest/gtest.h>

#include <vector>

#include "e2e_bench.h"

namespace {

constexpr unsigned kVelm = 44000002;
constexpr unsigned kOrskA = 44000003;
constexpr unsigned kOrskB = 44000004;
constexpr double kStrong = 0.0;    // dBm: 20 dB above the reference level
constexpr double kWeak = -23.0;   // 3 dB below it
constexpr double kReference = -20.0;

const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelm, 2, {{100.02e6, kStrong}, {300.02e6, kWeak}}},
        {kOrskA, 3, {{1000.3e6, kStrong}, {2000.3e6, kWeak}}, -160.0, false},
        {kOrskB, 4, {{500e6, kStrong}, {1500e6, kWeak}}},
    };
    return units;
}

struct OverloadCase {
    const char* engine;
    unsigned serial;
    double start, stop, rbw;
    bool strong;
};

class Overload : public e2e::SceneSuite<Scene> {};

TEST_F(Overload, AToneAboveTheReferenceLevelIsReportedInEverySweepEngineThatReadsSamples) {
    const OverloadCase cases[] = {
        {"slow", kVelm, 99.97e6, 100.07e6, 1e3, true},        {"slow", kVelm, 299.97e6, 300.07e6, 1e3, false},
        {"midrange", kOrskA, 995e6, 1005e6, 3e3, true},       {"midrange", kOrskA, 1995e6, 2005e6, 3e3, false},
        {"fast", kOrskB, 400e6, 600e6, 100e3, true},          {"fast", kOrskB, 1400e6, 1600e6, 100e3, false},
    };
    for (const OverloadCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.engine << (c.strong ? " strong" : " weak"));
        e2e::Sweep sweep = e2e::Between(c.start, c.stop, c.rbw);
        sweep.refLevel = kReference;
        const int device = devices_.at(c.serial);
        e2e::Trace t = e2e::Start(device, sweep);
        ASSERT_GE(t.initiate, 0);
        // The mark belongs to the unit, not to one trace: a free-running
        // engine may raise it for the next sweep before the first get has
        // read it. So a strong tone must be reported by some of the gets, a
        // weak one by none.
        int reported = 0;
        for (int k = 0; k < 3; ++k) {
            const qorStatus got = e2e::Take(device, t);
            ASSERT_TRUE(got == qorNoError || got == qorCompression) << got;
            reported += got == qorCompression;
        }
        qorAbort(device);
        if (c.strong) EXPECT_GT(reported, 0);
        else EXPECT_EQ(reported, 0);
    }
}

TEST_F(Overload, AToneAboveTheReferenceLevelIsReportedInTheIqStream) {
    const int device = devices_.at(kVelm);
    for (bool strong : {true, false}) {
        SCOPED_TRACE(strong ? "strong" : "weak");
        qorConfigCenterSpan(device, strong ? 100e6 : 300e6, 100e3);
        qorConfigLevel(device, kReference);
        ASSERT_EQ(qorConfigIQ(device, 8, 50e3), qorNoError);
        ASSERT_EQ(qorInitiate(device, ModeIQ), qorNoError);
        std::vector<float> samples(2 * 2048);
        qorStatus status = qorNoError;
        for (int block = 0; block < 4; ++block) {
            IQPacket packet{samples.data(), 2048, 0, 0, 0, 0, 0};
            const qorStatus got = qorGetIQData(device, &packet);
            if (got != qorNoError) status = got;
        }
        EXPECT_EQ(status, strong ? qorCompression : qorNoError);
        qorAbort(device);
    }
}

}  // namespace
