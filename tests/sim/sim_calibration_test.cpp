// The factory calibration the instrument serves. Its detector tables are read
// back through the library by the broadband sweep's end-to-end level checks,
// its path tables against the true gain by the calibration suite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "sim_host.h"

using namespace simtest;

TEST(SimCalibration, VelmTablesCarryRippleAndDrift) {
    constexpr unsigned kVelmB = 30000002;
    simbench::Bench bench;
    bench.pacing = "realtime";
    bench.units = {simbench::Unit(kVelmB, 2)};
    LoadBench(bench);
    std::vector<uint8_t> unit(4096);
    std::vector<uint8_t> table(static_cast<size_t>(qorsim_calibration_blocks(kVelmB, unit.data(), 4096, nullptr, 0)));
    ASSERT_EQ(table.size(), 458624u);
    qorsim_calibration_blocks(kVelmB, nullptr, 0, table.data(), static_cast<int>(table.size()));
    auto record = [&](int r, size_t offset) {
        double v;
        std::memcpy(&v, &table[r * 28648 + offset], sizeof v);
        return v;
    };
    for (int r = 0; r < 16; ++r) EXPECT_DOUBLE_EQ(record(r, 28496), 5.0 * r);
    // Without ripple across the high band and drift across the records the
    // corrections' checks against the true gain would prove little.
    const auto [lowest, highest] = std::minmax_element(unit.begin() + 732, unit.begin() + 732 + 426);
    EXPECT_GT(*highest - *lowest, 16);
    EXPECT_GT(std::fabs(record(15, 832 + 1600) - record(0, 832 + 1600)), 0.5);
}
