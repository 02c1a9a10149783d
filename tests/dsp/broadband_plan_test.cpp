// The broadband sweep's arithmetic: its detector grids, their pieces and levels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include "engine_broadband.h"
#include "qor_api.h"

namespace {

using qor::BroadbandPlan;
using qor::PlanBroadband;
using qor::PlanVelmDetectorSweep;

TEST(BroadbandPlan, SmallestSpanIsTwoPieces) {
    struct Case { int type, margin, points; };
    for (const Case c : {Case{4, 21, 2 * 21 + 1 + 67}, Case{3, 12, 2 * 12 + 1 + 67}, Case{2, 12, 92}}) {
        SCOPED_TRACE(c.type);
        const BroadbandPlan p = PlanBroadband(1000.2e6, 1199.6e6, c.type);
        EXPECT_EQ(1000, p.startMHz);
        EXPECT_EQ(1200, p.stopMHz);
        EXPECT_EQ(201, p.sweepLength);
        EXPECT_EQ(c.margin, p.margin);
        EXPECT_EQ(c.points, p.points);
        EXPECT_EQ(3 * (333 - c.margin) + 2, p.firstGrid);
        EXPECT_EQ(1001, p.LevelMHz(0)) << "3q + 2, the frequency between LO 0 and LO 2 x margin";
        ASSERT_EQ(2, p.chunkCount);
        EXPECT_EQ(p.firstGrid, p.chunkStart[0]);
        EXPECT_EQ(p.firstGrid + 3 * (c.points / 2), p.chunkStart[1]);
        EXPECT_EQ(c.points, p.chunkPoints[0] + p.chunkPoints[1]);
    }
}

TEST(BroadbandPlan, FullRangePiecesTileTheGrid) {
    const BroadbandPlan p = PlanBroadband(200e6, 12.4e9, DeviceTypeOrskB);
    EXPECT_EQ(12201, p.sweepLength);
    EXPECT_EQ(43 + 12202 / 3, p.points);
    EXPECT_EQ(17, p.chunkCount);
    int next = p.firstGrid;
    for (int i = 0; i < p.chunkCount; ++i) {
        EXPECT_EQ(next, p.chunkStart[i]) << i;
        EXPECT_LE(p.chunkPoints[i], 260) << "a reply of about 500 bytes";
        next += 3 * p.chunkPoints[i];
    }
    EXPECT_EQ(p.points, std::accumulate(p.chunkPoints.begin(), p.chunkPoints.end(), 0));
    // The last level reaches the stop.
    EXPECT_GE(p.LevelMHz(p.points - 2 * p.margin - 1), p.stopMHz);
}

TEST(BroadbandPlan, SpreadPutsEachGridPointOnItsOwnBin) {
    // A start of 1011 MHz: grid point c lies at 1013 + 3c MHz, bin 2 + 3c. A
    // tone on point 4 (bin 14), straight lines in dB to its neighbours, the
    // first level held below its bin, and unfilled levels at the end.
    std::vector<double> levels(12, -80.0);
    levels[4] = -20.0;
    levels[10] = levels[11] = -200.0;
    std::vector<double> trace(30, 0.0);
    qor::SpreadLevels(levels.data(), 12, 2, trace.data(), 30);
    EXPECT_EQ(14, std::max_element(trace.begin(), trace.end()) - trace.begin());
    EXPECT_EQ(-20.0, trace[14]);
    EXPECT_NEAR(-40.0, trace[13], 1e-6);
    EXPECT_NEAR(-60.0, trace[16], 1e-6);
    EXPECT_EQ(-80.0, trace[0]);
    EXPECT_EQ(-80.0, trace[29]);
    const qor::BroadbandPlan p = qor::PlanBroadband(1011e6, 1300e6, DeviceTypeOrskA);
    EXPECT_EQ(2, p.LevelMHz(0) - p.startMHz);
}

TEST(BroadbandPlan, VelmDetectorSweepLimits) {
    const qor::VelmDetectorSweep full = PlanVelmDetectorSweep(200e6, 4.4e9);
    EXPECT_EQ(188, full.first);
    EXPECT_EQ(4415, full.last);
    EXPECT_EQ((4415 - 188) / 3, full.points);
    // The lowest LO is 150 MHz; the top is lowered to whole grid steps.
    const qor::VelmDetectorSweep low = PlanVelmDetectorSweep(160e6, 400e6);
    EXPECT_EQ(150, low.first);
    EXPECT_EQ(0, (low.last - low.first) % 3);
    EXPECT_LE(low.last, 415);
    EXPECT_GT(low.last, 412);
}

TEST(BroadbandPlan, VelmBinTakesTheWeakerSide) {
    // Bin 100 of a trace from 200 MHz: x = 301 MHz, nearest LO index k = 37 of the grid from 188 MHz.
    const int points = 100;
    std::vector<double> a(points, -70.0), b(points, -70.0);
    EXPECT_EQ(-70.0, qor::VelmBinLevel(a.data(), b.data(), points, 188, 200e6, 100));
    a[33] = -20.0;  // an LO below only: an image
    EXPECT_EQ(-70.0, qor::VelmBinLevel(a.data(), b.data(), points, 188, 200e6, 100));
    a[41] = -21.0;  // and above: a signal, at the weaker side's level
    EXPECT_EQ(-21.0, qor::VelmBinLevel(a.data(), b.data(), points, 188, 200e6, 100));
    b[33] = -10.0;
    b[40] = -10.0;  // the other grid sees it stronger on both sides
    EXPECT_EQ(-10.0, qor::VelmBinLevel(a.data(), b.data(), points, 188, 200e6, 100));
    // Grid indices beyond the tables are held to their ends.
    EXPECT_EQ(-70.0, qor::VelmBinLevel(a.data(), b.data(), points, 188, 200e6, 400));
}

TEST(BroadbandPlan, VelmSmoothingKeepsTheEdges) {
    std::vector<double> raw(40, -60.0), trace(40, 0.0);
    raw[20] = 40.0;  // 100 dB up
    raw[3] = 0.0;
    qor::SmoothVelmTrace(raw.data(), trace.data(), 40);
    EXPECT_EQ(0.0, trace[3]) << "the first 9 bins are not smoothed";
    EXPECT_NEAR(-60.0 + 100.0 * 0.2, trace[20], 1e-9);
    EXPECT_NEAR(-60.0 + 100.0 * 0.04, trace[16], 1e-9);
    EXPECT_NEAR(-60.0, trace[15], 1e-9);
    EXPECT_EQ(-60.0, trace[31]) << "nor the last 9";
}

}  // namespace
