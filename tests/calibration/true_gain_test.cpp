// The decisive check of the corrections: for a unit of each type, built from
// the factory calibration that the virtual instrument measured from its own
// physics, GetCorrection must give minus the instrument's true path gain,
// less the window's 3 dB: within 0.05 dB on the calibration's grid points,
// and between them within that plus the error of interpolating the true gain
// itself over the same stretch. The 4.4 GHz family's unit block stores its
// terms in coarse steps (1/32 dB, 0.1 dB, 0.01 of a power ratio); what those
// steps can hide is allowed on top.
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
    }

    double Truth(const Point& p) {
        return -sim->pathGain(serial, p.f, p.att, p.gain, p.highIf, p.preamp, p.ifOffset, -1, p.temperature) - 3.0;
    }
    double Library(const Point& p) {
        corr->temperature = p.temperature;
        corr->preampOn = p.preamp != 0;
        return corr->GetCorrection(p.f, p.att, p.gain, p.highIf, p.ifOffset, -1);
    }
    // The most that the rounding of the unit block's fields can move the
    // correction at p; the 12.4 GHz family keeps floats.
    double Quantisation(const Point& p) const {
        if (type >= 3) return 0.0;
        double q = p.f < 150e6 ? 1.0 / 64 : 1.0 / 32;  // attenuator response in 1/32 and 1/16 dB
        q += 0.0005 + (p.gain != 1 ? 0.01 : 0.0);      // level word 0.001 dB, gain words 0.02 dB
        const int k = std::clamp(static_cast<int>(std::floor(25.0 - p.ifOffset / 5000.0)), 0, 49);
        const uint8_t* response = store.unitBlock.get() + (p.highIf ? caltest::velm_unit::kIfHigh : caltest::velm_unit::kIfLow);
        const double stored = 0.01 * std::min(response[k], response[k + 1]);
        q += 10.0 * std::log10(stored / (stored - 0.005));  // IF response in 0.01 of a power ratio
        if (type == 1 && !p.highIf) q += 0.05;                // low-IF offset in 0.1 dB
        if (type == 2 && p.preamp) q += 0.05 + (p.f < 1e6 ? 1.0 / 64 : 0.0);  // preamplifier 0.1 dB, roll-off 1/32
        return q;
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
        allowed += Quantisation(p);
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
};

TEST_P(TrueGainTest, AgreesOnTheGrid) {
    const std::vector<double> temperatures = RecordTemperatures();
    for (double f : FrequencyGrid())
        for (double t : {temperatures.front(), temperatures[temperatures.size() / 2], temperatures.back()})
            for (double offset : {0.0, 50000.0, -100000.0})
                ForEachState([&](int att, int gain, int highIf, int preamp) {
                    const Point p{f, att, gain, highIf, preamp, offset, t};
                    Check(p, Truth(p), kGridTolerance);
                });
}

TEST_P(TrueGainTest, AgreesBetweenFrequencyPoints) {
    const std::vector<double> grid = FrequencyGrid();
    const double t = RecordTemperatures()[RecordTemperatures().size() / 2];
    for (std::size_t i = 0; i + 1 < grid.size(); ++i) {
        // The neighbour on the table's own grid, not the thinned one.
        const double step = type <= 2 ? (grid[i] < 150e6 ? 1e6 : 1e7) : std::min(grid[i + 1] - grid[i], 1e7);
        const double a = grid[i], b = grid[i] + step, mid = a + 0.37 * step;
        ForEachState([&](int att, int gain, int highIf, int preamp) {
            CheckBetween({a, att, gain, highIf, preamp, 0.0, t}, {mid, att, gain, highIf, preamp, 0.0, t},
                         {b, att, gain, highIf, preamp, 0.0, t}, 0.37);
        });
    }
}

TEST_P(TrueGainTest, AgreesAcrossTheIfFilter) {
    const double t = RecordTemperatures().front();
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

TEST_P(TrueGainTest, AgreesBetweenAndBeyondTheTemperatureRecords) {
    const std::vector<double> records = RecordTemperatures();
    if (records.size() < 2) GTEST_SKIP() << "this type keeps no temperature records";
    for (double f : {3e6, 700e6, 2.2e9, 5.5e9, 9e9}) {
        if (type <= 2 && f > 4.4e9) continue;
        ForEachState([&](int att, int gain, int highIf, int preamp) {
            for (std::size_t r = 0; r + 1 < records.size(); r += 2) {
                const double a = records[r], b = records[r + 1];
                CheckBetween({f, att, gain, highIf, preamp, 0.0, a}, {f, att, gain, highIf, preamp, 0.0, 0.6 * a + 0.4 * b},
                             {f, att, gain, highIf, preamp, 0.0, b}, 0.4);
            }
            // Beyond the records: the 4.4 GHz family extrapolates the last
            // stretch, the 12.4 GHz family holds its edge record.
            const std::size_t n = records.size();
            const double below = records[0] - 8.0, above = records[n - 1] + 8.0;
            if (type == 2) {
                CheckBetween({f, att, gain, highIf, preamp, 0.0, records[0]}, {f, att, gain, highIf, preamp, 0.0, below},
                             {f, att, gain, highIf, preamp, 0.0, records[1]},
                             (below - records[0]) / (records[1] - records[0]));
                CheckBetween({f, att, gain, highIf, preamp, 0.0, records[n - 2]},
                             {f, att, gain, highIf, preamp, 0.0, above}, {f, att, gain, highIf, preamp, 0.0, records[n - 1]},
                             (above - records[n - 2]) / (records[n - 1] - records[n - 2]));
            } else {
                const Point edgeLow{f, att, gain, highIf, preamp, 0.0, records[0]};
                const Point edgeHigh{f, att, gain, highIf, preamp, 0.0, records[n - 1]};
                CheckBetween(edgeLow, {f, att, gain, highIf, preamp, 0.0, below}, edgeLow, 0.0);
                CheckBetween(edgeHigh, {f, att, gain, highIf, preamp, 0.0, above}, edgeHigh, 0.0);
            }
        });
    }
}

INSTANTIATE_TEST_SUITE_P(EachType, TrueGainTest, ::testing::Values(1u, 2u, 3u, 4u),
                         [](const auto& info) { return "type" + std::to_string(info.param); });

}  // namespace
