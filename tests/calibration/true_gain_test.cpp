// The decisive check of the corrections: for a unit of each type, built from
// the factory calibration that the virtual instrument measured from its own
// physics, GetCorrection must give minus the instrument's true path gain,
// less the window's 3 dB: within 0.05 dB on the calibration's grid points,
// and between them within that plus the error of interpolating the true gain
// itself over the same stretch. The one term read without interpolation, the
// preamplifier's drift (held at the lower record of the temperature's
// bracket), may move by what the truth's preamplifier moves over the hold.
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
#include "sim_bench.h"

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
        simbench::Bench bench;
        for (int t = 1; t <= 4; ++t) {
            bench.units.push_back(simbench::Unit(kSerialBase + t, t).OnDeviceCalibration(t % 2 == 0).Temperature(25.0));
        }
        ASSERT_EQ(sim->loadBenchJson(simbench::Json(bench).c_str()), 0) << sim->lastError();
        type = GetParam();
        serial = kSerialBase + type;
        ASSERT_GT(sim->calibrationBlocks(serial, store.unitBlock.get(), 4096, store.tableBlock.get(), 768000), 0);
        const uint8_t* unit = store.unitBlock.get();
        const uint8_t* table = store.tableBlock.get();
        const qor::DeviceFamily family(static_cast<int32_t>(type));
        if (family.IsVelm())
            corr = std::make_unique<qor::CorrectionsVelm>(family, table, unit);
        else
            corr = std::make_unique<qor::CorrectionsOrsk>(family, table, unit);
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
    // The preamplifier's part alone of `gain` at p: on less off.
    template <typename Gain>
    static double PreampPart(Point p, const Gain& gain) {
        const double on = gain(p);
        p.preamp = 0;
        return on - gain(p);
    }
    double TruePreamp(const Point& p) { return PreampPart(p, [this](const Point& q) { return Truth(q); }); }
    // What the truth's preamplifier term moves between the temperature of p
    // and the record at which the corrections read its drift: the lower
    // record of the bracket, the last one being 11.
    double PreampHold(const Point& p) {
        if (type != 2 || !p.preamp) return 0.0;
        std::size_t lower = 0;
        while (lower < 11 && records_[lower + 1] <= p.temperature) ++lower;
        Point held = p;
        held.temperature = records_[lower];
        return std::fabs(TruePreamp(p) - TruePreamp(held));
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
    void Check(const Point& p, double truth, double allowed) {
        Compare(p, Library(p), truth, allowed + PreampHold(p));
    }
    // Reports the first few disagreements in full and counts the rest.
    void Compare(const Point& p, double library, double truth, double allowed) {
        if (std::fabs(library - truth) <= allowed || ++failures_ > 10) return;
        ADD_FAILURE() << "type " << type << " f " << p.f << " att " << p.att << " gain " << p.gain << " highIf "
                      << p.highIf << " preamp " << p.preamp << " ifOffset " << p.ifOffset << " T " << p.temperature
                      << ": library " << library << ", truth " << truth << ", allowed " << allowed;
    }
    void TearDown() override {
        if (failures_ > 10) ADD_FAILURE() << failures_ << " disagreements in all";
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

TEST_P(TrueGainTest, AgreesBetweenFrequencyPoints) {
    const std::vector<double> grid = FrequencyGrid();
    const double t = records_[records_.size() / 2];
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

// Only type 2 has a preamplifier; type 1 keeps no temperature records.
using PreampTrueGainTest = TrueGainTest;
using DriftTrueGainTest = TrueGainTest;

TEST_P(PreampTrueGainTest, AgreesOnThePreampRollOff) {
    // The preamplifier's part alone leaves out the response, which the
    // corrections extrapolate below 1 MHz.
    auto truth = [&](const Point& p) { return TruePreamp(p); };
    auto library = [&](const Point& p) { return PreampPart(p, [this](const Point& q) { return Library(q); }); };
    for (double t : {records_.front(), records_.back()})
        for (int highIf = 0; highIf < 2; ++highIf)
            for (double f = 0.0; f < 1e6; f += 50e3) {
                const Point a{f, 1, 1, highIf, 1, 0.0, t}, mid{f + 21e3, 1, 1, highIf, 1, 0.0, t},
                    b{f + 50e3, 1, 1, highIf, 1, 0.0, t};
                Compare(a, library(a), truth(a), kGridTolerance + PreampHold(a));
                const double line = 0.58 * truth(a) + 0.42 * truth(b);
                Compare(mid, library(mid), truth(mid), kGridTolerance + PreampHold(mid) + std::fabs(truth(mid) - line));
            }
}

TEST_P(DriftTrueGainTest, AgreesBetweenAndBeyondTheTemperatureRecords) {
    const std::vector<double>& r = records_;
    ASSERT_GE(r.size(), 2u);
    const std::size_t n = r.size();
    for (double f : {3e6, 700e6, 2.2e9, 5.5e9, 9e9}) {
        if (type <= 2 && f > 4.4e9) continue;
        ForEachState([&](int att, int gain, int highIf, int preamp) {
            auto at = [&](double t) { return Point{f, att, gain, highIf, preamp, 0.0, t}; };
            auto check = [&](double ta, double t, double tb) {
                CheckBetween(at(ta), at(t), at(tb), ta == tb ? 0.0 : (t - ta) / (tb - ta));
            };
            for (std::size_t k = 0; k + 1 < n; k += 2) check(r[k], 0.6 * r[k] + 0.4 * r[k + 1], r[k + 1]);
            // Beyond the records: the 4.4 GHz family extrapolates the last
            // stretch, the 12.4 GHz family holds its edge record.
            const bool extrapolates = type == 2;
            check(r[0], r[0] - 8.0, extrapolates ? r[1] : r[0]);
            check(extrapolates ? r[n - 2] : r[n - 1], r[n - 1] + 8.0, r[n - 1]);
        });
    }
}

std::string TypeName(const ::testing::TestParamInfo<unsigned>& info) { return "type" + std::to_string(info.param); }

INSTANTIATE_TEST_SUITE_P(EachType, TrueGainTest, ::testing::Values(1u, 2u, 3u, 4u), TypeName);
INSTANTIATE_TEST_SUITE_P(Type2, PreampTrueGainTest, ::testing::Values(2u), TypeName);
INSTANTIATE_TEST_SUITE_P(RecordedTypes, DriftTrueGainTest, ::testing::Values(2u, 3u, 4u), TypeName);

}  // namespace
