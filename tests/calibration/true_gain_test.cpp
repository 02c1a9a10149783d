// The decisive check of the corrections: for a unit of each type, built from
// the factory calibration that the virtual instrument measured from its own
// physics, GetCorrection must give minus the instrument's true path gain,
// less the window's 3 dB: within 0.05 dB on the calibration's grid points at
// record temperatures, and across the IF filter within that plus the error of
// interpolating the true gain itself. How the corrections interpolate between
// grid points and records, and beyond them, the closed-form tests of each
// family pin exactly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cal_images.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
#include "corrections_velm.h"
#include "qorsim_calls.h"

namespace {

constexpr double kGridTolerance = 0.05;

// One setting of the receiver at which a correction is asked for.
struct Point {
    double f;
    int att, gain, highIf, preamp;
    double ifOffset, temperature;
};

class TrueGainTest : public ::testing::TestWithParam<uint32_t> {
protected:
    static constexpr unsigned kSerialBase = 31000000;

    void SetUp() override {
        sim = simcontrol::Resolve();
        if (!sim) GTEST_SKIP() << "no virtual instrument (QOR_D2XX_LIBRARY) to compare with";
        const std::string bench =
            R"({"clock": "fast", "pacing": "immediate", "units": [)"
            R"({"serial": 31000001, "type": 1, "onDeviceCalibration": false, "temperature": 25.0},)"
            R"({"serial": 31000002, "type": 2, "onDeviceCalibration": true, "temperature": 25.0},)"
            R"({"serial": 31000003, "type": 3, "onDeviceCalibration": false, "temperature": 25.0},)"
            R"({"serial": 31000004, "type": 4, "onDeviceCalibration": true, "temperature": 25.0}]})";
        ASSERT_EQ(sim->loadBenchJson(bench.c_str()), 0) << sim->lastError();
        type = GetParam();
        serial = kSerialBase + type;
        const int tableBytes =
            sim->calibrationBlocks(serial, store.unitBlock.get(), 4096, store.tableBlock.get(), 768000);
        ASSERT_GT(tableBytes, 0);
        const uint8_t* unit = store.unitBlock.get();
        const uint8_t* table = store.tableBlock.get();
        if (std::all_of(unit, unit + 4096, [](uint8_t b) { return b == 0; }) &&
            std::all_of(table, table + tableBytes, [](uint8_t b) { return b == 0; }))
            GTEST_SKIP() << "the instrument serves no factory calibration yet";
        if (type <= 2)
            corr = std::make_unique<qor::CorrectionsVelm>(type, store.tableBlock.get(), store.unitBlock.get());
        else
            corr = std::make_unique<qor::CorrectionsOrsk>(type, store.tableBlock.get(), store.unitBlock.get());
        corr->Load(nullptr);
        records_ = RecordTemperatures();
    }

    double Truth(const Point& p) {
        return -sim->pathGain(serial, p.f, p.att, p.gain, p.highIf, p.preamp, p.ifOffset, -1, p.temperature) - 3.0;
    }
    double Library(const Point& p) {
        corr->temperature = p.temperature;
        corr->preampOn = p.preamp != 0;
        return corr->GetCorrection(p.f, p.att, p.gain, p.highIf, p.ifOffset, -1);
    }
    // The record temperatures of the unit's table block.
    std::vector<double> RecordTemperatures() const {
        std::vector<double> t;
        const uint8_t* table = store.tableBlock.get();
        if (type == 1) return {25.0};
        const int records = type == 2 ? 13 : 12;  // the records that the lookup can reach
        for (int r = 0; r < records; ++r) {
            if (type == 2) {
                double v;
                std::memcpy(&v, table + r * caltest::velm_table::kRecord + caltest::velm_table::kTemperature, 8);
                t.push_back(v);
            } else if (r >= 4 && r <= 10) {
                float v;
                std::memcpy(&v, table + r * caltest::orsk_table::kRecord + caltest::orsk_table::kTemperature, 4);
                t.push_back(v);
            }
        }
        return t;
    }
    // Frequency grid points of the unit's tables, thinned to every `step`-th.
    std::vector<double> FrequencyGrid() const {
        std::vector<double> f;
        if (type <= 2) {
            for (int i = 1; i < 150; i += 6) f.push_back(i * 1e6);
            for (int i = 0; i < 426; i += 11) f.push_back(150e6 + i * 1e7);
        } else {
            for (const auto& seg : caltest::orsk_table::kSegments) {
                const int step = seg.points > 50 ? 17 : 2;
                for (int p = 0; p < seg.points; p += step)
                    if (seg.start + p * seg.step <= 12.98e9) f.push_back(seg.start + p * seg.step);  // the corrections' limit
            }
        }
        return f;
    }

    // Checks the library at `mid` against the truth, allowing the error of a
    // straight line through the truth at `a` and `b` on top of the grid tolerance.
    void CheckBetween(const Point& a, const Point& mid, const Point& b, double weight) {
        const double truthMid = Truth(mid);
        const double line = (1.0 - weight) * Truth(a) + weight * Truth(b);
        Check(mid, truthMid, kGridTolerance + std::fabs(truthMid - line));
    }
    // Reports the first few disagreements in full and counts the rest.
    void Check(const Point& p, double truth, double allowed) {
        const double library = Library(p);
        if (std::fabs(library - truth) <= allowed) return;
        if (++failures_ <= 10)
            ADD_FAILURE() << Describe(p) << ": library " << library << ", truth " << truth << ", allowed " << allowed;
    }
    void TearDown() override {
        if (failures_ > 10) ADD_FAILURE() << failures_ << " disagreements in all";
    }
    std::string Describe(const Point& p) const {
        return "type " + std::to_string(type) + " f " + std::to_string(p.f) + " att " + std::to_string(p.att) +
               " gain " + std::to_string(p.gain) + " highIf " + std::to_string(p.highIf) + " preamp " +
               std::to_string(p.preamp) + " ifOffset " + std::to_string(p.ifOffset) + " T " +
               std::to_string(p.temperature);
    }
    // Every attenuator, gain, IF and preamplifier state.
    void ForEachState(const std::function<void(int, int, int, int)>& body) const {
        for (int att = 0; att < 4; ++att)
            for (int gain = 0; gain < 3; ++gain)
                for (int highIf = 0; highIf < 2; ++highIf)
                    for (int preamp = 0; preamp < (type == 2 ? 2 : 1); ++preamp) body(att, gain, highIf, preamp);
    }

    const simcontrol::Calls* sim = nullptr;
    int failures_ = 0;
    uint32_t type = 0;
    unsigned serial = 0;
    qor::CalibrationStore store;
    std::unique_ptr<qor::DeviceCorr> corr;
    std::vector<double> records_;  // record temperatures that the lookup can reach
};

TEST_P(TrueGainTest, AgreesOnTheGrid) {
    for (double f : FrequencyGrid())
        for (double t : {records_.front(), records_[records_.size() / 2], records_.back()})
            for (double offset : {0.0, 50000.0, -100000.0})
                ForEachState([&](int att, int gain, int highIf, int preamp) {
                    const Point p{f, att, gain, highIf, preamp, offset, t};
                    Check(p, Truth(p), kGridTolerance);
                });
}

TEST_P(TrueGainTest, AgreesAcrossTheIfFilter) {
    const double t = records_.front();
    for (double f : {5e6, 900e6, 3.1e9})
        for (int k = 0; k < 50; k += 3) {
            const double a = (25 - k) * 5000.0, b = a - 5000.0;
            ForEachState([&](int att, int gain, int highIf, int preamp) {
                const Point grid{f, att, gain, highIf, preamp, a, t};
                Check(grid, Truth(grid), kGridTolerance);
                CheckBetween(grid, {f, att, gain, highIf, preamp, a - 2100.0, t}, {f, att, gain, highIf, preamp, b, t},
                             2100.0 / 5000.0);
            });
        }
}

INSTANTIATE_TEST_SUITE_P(EachType, TrueGainTest, ::testing::Values(1u, 2u, 3u, 4u),
                         [](const auto& info) { return "type" + std::to_string(info.param); });

}  // namespace
