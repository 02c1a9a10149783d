// The devices under test between the tracking generator and the analyzer:
// their gains follow their formulas. (The generator's levels and gated sweeps
// are measured through the library by the tracking generator's end-to-end tests.)
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "bench.h"

TEST(SimGenerator, DevicesUnderTestFollowTheirFormulas) {
    struct Case {
        const char* dut;
        double f, db;
    } cases[] = {
        {R"({"kind": "thru"})", 1e9, 0.0},
        {R"({"kind": "attenuator", "loss": 20})", 3e9, -20.0},
        {R"({"kind": "bandpass", "center": 1e9, "bandwidth": 1e8, "loss": 1})", 1e9, -1.0},
        {R"({"kind": "filter", "center": 1e9, "bandwidth": 1e8, "loss": 1})", 1.05e9, -1.0 - 10 * std::log10(2.0)},
        {R"({"kind": "bandpass", "center": 1e9, "bandwidth": 1e8})", 0.9e9, -10 * std::log10(65.0)},
        {R"({"kind": "lowpass", "cutoff": 1e9})", 1e9, -10 * std::log10(2.0)},
        {R"({"kind": "lowpass", "cutoff": 1e9, "loss": 0.5})", 2e9, -0.5 - 10 * std::log10(65.0)},
        {R"({"kind": "notch", "center": 1e9, "bandwidth": 1e6, "depth": 60})", 1e9, -60.0},
        {R"({"kind": "notch", "center": 1e9, "bandwidth": 1e6, "depth": 60})", 1.0005e9,
         10 * std::log10((1 + 1e-6) / 2)},
        {R"({"kind": "notch", "center": 1e9, "bandwidth": 1e6})", 1e9, -70.0},
    };
    for (const auto& c : cases) {
        EXPECT_NEAR(qorsim::DutGainDb(qorsim::ParseDutJson(c.dut), c.f), c.db, 1e-9) << c.dut << " at " << c.f;
    }
    EXPECT_THROW(qorsim::ParseDutJson(R"({"kind": "cable"})"), std::runtime_error);
    EXPECT_THROW(qorsim::ParseDutJson(R"({"kind": "notch", "bandwidth": 0})"), std::runtime_error);
}
