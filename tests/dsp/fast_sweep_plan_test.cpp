// The step grid and segments of the hopped sweep.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "engine_fast.h"

namespace {

using qor::FastSweepPlan;
using qor::PlanFastSweep;

int TotalSteps(const FastSweepPlan& p) {
    return std::accumulate(p.segmentLength.begin(), p.segmentLength.end(), 0);
}

TEST(FastSweepPlan, LowStepsBelowTheLowestLo) {
    // A start near 0 Hz: the lead would begin 81 steps below index 27.
    const FastSweepPlan zero = PlanFastSweep(100.0, 100e6 + 100.0, 100e6, 256, 1.0, true);
    EXPECT_EQ(zero.stepStart, 53);
    EXPECT_EQ(zero.lowSteps, 81);
    EXPECT_EQ(zero.segmentStart.front(), 27);
    EXPECT_EQ(zero.segmentLength.front(), 214 - 81);
    // The first step's bins lie below the start: it writes nothing.
    EXPECT_GE(zero.firstBin, zero.binsPerStep);

    const FastSweepPlan mid = PlanFastSweep(5e6, 105e6, 100e6, 256, 1.0, true);
    EXPECT_EQ(mid.lowSteps, 27 - (mid.stepStart - 107));
    EXPECT_EQ(mid.segmentStart.front() + mid.segmentLength.front(), mid.stepStart + 107);

    // Without rejection no step is below the lowest LO.
    EXPECT_EQ(PlanFastSweep(100.0, 100e6 + 100.0, 100e6, 256, 1.0, false).lowSteps, 0);
}

TEST(FastSweepPlan, TimebaseFactorScalesTheReportedGrid) {
    const double ratio = 1.000002;
    const FastSweepPlan p = PlanFastSweep(1e9, 1.2e9, 2e8, 256, ratio, false);
    const FastSweepPlan exact = PlanFastSweep(1e9, 1.2e9, 2e8, 256, 1.0, false);
    EXPECT_DOUBLE_EQ(p.binSize, exact.stepBin * ratio);
    // Tuning happens in the divided domain: 1 GHz / ratio is 2 kHz lower.
    EXPECT_EQ(p.stepStart, static_cast<int>(std::floor((1e9 / ratio + 10.76e6) / 200000.0)));
    // The first bin is counted from the configured start against the divided
    // grid, so it lands up to (ratio - 1) x start further up.
    EXPECT_NEAR(p.startFreq, 1e9, p.binSize / 2 + (ratio - 1.0) * 1e9);
    const double edge = p.stepStart * 200000.0 - 10.7e6 - (p.binsPerStep / 2) * p.binSize;
    EXPECT_NEAR(p.startFreq, p.firstBin * p.binSize + ratio * edge, 1e-6);
}

// Over many spans and sizes: the segments tile the steps without gap, and
// the steps cover the whole trace.
TEST(FastSweepPlan, SegmentsTileTheStepsAndCoverTheTrace) {
    for (int n : {1, 8, 16, 32, 64, 128, 256}) {
        for (double start : {100.0, 3e6, 15.9e6, 16.2e6, 99.99e6, 1e9, 4.1e9}) {
            for (double span : {201e3, 21.4e6, 21.6e6, 100e6, 4.3e9}) {
                for (bool reject : {false, true}) {
                    SCOPED_TRACE(testing::Message() << "n " << n << " start " << start << " span " << span
                                                    << " reject " << reject);
                    const FastSweepPlan p = PlanFastSweep(start, start + span, span, n, 1.0, reject);
                    const int lead = reject ? 107 : 0;
                    ASSERT_EQ(p.segmentCount, static_cast<int>(p.segmentStart.size()));
                    EXPECT_EQ(TotalSteps(p), p.stepCount + lead - p.lowSteps);
                    EXPECT_EQ(p.segmentStart.front(), p.stepStart - lead + p.lowSteps);
                    EXPECT_GE(p.segmentStart.front(), 27);
                    for (int k = 0; k < p.segmentCount; ++k) {
                        EXPECT_GE(p.segmentLength[k], 1);
                        if (k > 0) {
                            EXPECT_EQ(p.segmentStart[k], p.segmentStart[k - 1] + p.segmentLength[k - 1]);
                        }
                    }
                    EXPECT_GE(p.binsPerStep * p.stepCount - p.firstBin, p.sweepLength);
                    EXPECT_GE(p.firstBin, 0);
                    EXPECT_NEAR(p.startFreq, start, p.binSize / 2 + 1e-6);
                }
            }
        }
    }
}

}  // namespace
