// Reads of the stream that hand over only part of what was asked, though the
// rest is queued, as a driver may: at any rate of them every engine that
// reads samples measures exactly what it measures without them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "e2e_modes.h"

namespace {

constexpr unsigned kVelmB = 73000002;
constexpr unsigned kOrskB = 73000004;

// The max trace of the second sweep, or the power in dB of the second block of samples.
std::vector<double> Result(const e2e::ModeCase& mode, int device) {
    EXPECT_GE(mode.start(device), 0) << mode.name;
    std::vector<double> result;
    int length = 0;
    double start = 0.0, bin = 0.0;
    if (qorQuerySweepInfo(device, &length, &start, &bin) == qorNoError) {
        std::vector<double> min(static_cast<size_t>(length)), max(min.size());
        for (int k = 0; k < 2; ++k) EXPECT_EQ(qorGetSweep_64f(device, min.data(), max.data()), qorNoError);
        result = max;
    } else {
        std::vector<float> iq(2 * 4096);
        for (int k = 0; k < 2; ++k) {
            IQPacket packet{iq.data(), 4096, 0, 0, 0, 0, 0};
            EXPECT_EQ(qorGetIQData(device, &packet), qorNoError);
        }
        double power = 0.0;
        for (const float v : iq) power += static_cast<double>(v) * v;
        result.push_back(10.0 * std::log10(power / 4096));
    }
    qorAbort(device);
    return result;
}


TEST(ShortReadsTest, EveryEngineMeasuresAsWithoutThem) {
    const std::string problem = e2e::LoadBench({{kVelmB, 2, {{1e9, -30.0}}, -250.0}, {kOrskB, 4, {{1e9, -30.0}}, -250.0}});
    if (!problem.empty()) GTEST_SKIP() << problem;
    const int devices[2] = {e2e::Open(kVelmB), e2e::Open(kOrskB)};
    ASSERT_GE(devices[0], 0);
    ASSERT_GE(devices[1], 0);
    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        // The detector sweeps come on the command channel; the modes without
        // sweeps or samples to compare are covered elsewhere.
        const std::string name = mode.name;
        if (name.rfind("broadband", 0) == 0 || name == "real time" || name == "audio" || name == "tracking generator") {
            continue;
        }
        SCOPED_TRACE(mode.name);
        const int device = devices[mode.type == 4 ? 1 : 0];
        const unsigned serial = mode.type == 4 ? kOrskB : kVelmB;
        const std::vector<double> clean = Result(mode, device);
        for (const double chance : {0.2, 0.9}) {
            SCOPED_TRACE(chance);
            ASSERT_EQ(e2e::TheSim()->shortReads(serial, chance), 0);
            const std::vector<double> cut = Result(mode, device);
            ASSERT_EQ(cut.size(), clean.size());
            const double peak = *std::max_element(clean.begin(), clean.end());
            for (size_t i = 0; i < clean.size(); ++i) {
                // Deeper in a tone's skirt two sweeps of the same scene differ by
                // tenths of a dB anyway (the hopped sweep's steps fall differently).
                if (clean[i] > peak - 30.0) {
                    EXPECT_NEAR(cut[i], clean[i], 0.01) << "bin " << i;
                }
            }
        }
        e2e::TheSim()->shortReads(serial, 0.0);
    }
    e2e::CloseAll();
}

}  // namespace
