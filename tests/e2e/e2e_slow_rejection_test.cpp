// Image rejection of the narrow sweep: a signal that reaches the IF only as
// an image of one pass shows without rejection and is gone with it, while a
// real tone keeps its level.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "e2e_bench.h"

namespace {

using e2e::Measure;
using e2e::Sweep;
using e2e::Trace;

constexpr unsigned kVelmB = 32000002, kOrskB = 34000004;
constexpr double kHighIf = 10694444.444444444, kLowIf = 2916666.6666666667;
constexpr double kVelmCenter = 1.5e9, kOrskCenter = 5.0e9;

// Each unit: a real tone 25 kHz above the centre and the image of the first
// pass (high IF, LO above), which shows 20 kHz below the centre on the
// 4.4 GHz unit, and 60 kHz below on the 12.4 GHz unit: that one measures in
// band 2, behind its first mixer, where images come from below the signal.
// The 4.4 GHz unit also sees the image of its second pass (low IF), which
// would show 40 kHz below the centre.
const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelmB, 2,
         {{kVelmCenter + 25e3, -30.0}, {kVelmCenter + 2 * kHighIf + 20e3, -40.0},
          {kVelmCenter + 2 * kLowIf + 40e3, -40.0}}},
        {kOrskB, 4, {{kOrskCenter + 25e3, -30.0}, {kOrskCenter - 2 * kHighIf + 60e3, -40.0}}},
    };
    return units;
}

class SlowRejection : public e2e::SceneSuite<Scene> {
protected:

    // Strongest reading farther than 10 kHz from the real tone.
    static double Spurious(const Trace& t, double tone) {
        double highest = -400.0;
        for (int i = 0; i < t.length; ++i) {
            if (std::fabs(t.FrequencyOf(i) - tone) > 10e3) highest = std::max(highest, t.max[static_cast<size_t>(i)]);
        }
        return highest;
    }
};


TEST_F(SlowRejection, ImagesGoRealTonesStay) {
    for (const auto& [serial, center] : {std::pair{kVelmB, kVelmCenter}, std::pair{kOrskB, kOrskCenter}}) {
        SCOPED_TRACE(serial);
        Sweep sweep;
        sweep.center = center;
        sweep.span = 150e3;
        sweep.rbw = 1e3;
        const Trace open = Measure(devices_[serial], sweep);
        sweep.reject = true;
        const Trace rejected = Measure(devices_[serial], sweep);
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
