// The factory calibration's detector tables, decoded here as a host would,
// must read back the level injected into the detector sweep. (The path tables
// against the true gain are checked through the library's corrections.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "sim_host.h"

using namespace simtest;

namespace {

constexpr unsigned kVelmB = 30000002;
constexpr unsigned kOrskB = 30000004;

simbench::Bench CalibrationBench(const simbench::Unit& unit) {
    simbench::Bench bench;
    bench.pacing = "realtime";
    bench.units = {unit};
    return bench;
}

std::vector<uint8_t> Table(unsigned serial) {
    std::vector<uint8_t> table(static_cast<size_t>(qorsim_calibration_blocks(serial, nullptr, 0, nullptr, 0)));
    qorsim_calibration_blocks(serial, nullptr, 0, table.data(), static_cast<int>(table.size()));
    return table;
}

template <typename T>
T At(const std::vector<uint8_t>& b, size_t offset) {
    T v;
    std::memcpy(&v, &b[offset], sizeof v);
    return v;
}

// The 12.4 GHz family's detector tables: code-to-power curves A and B, and
// the RF level table (fine from 8.3 GHz) of each temperature record.
struct OrskDetector {
    std::vector<uint8_t> b;
    static constexpr size_t kRecord = 47634;
    float F(int r, size_t offset) const { return At<float>(b, r * kRecord + offset); }
    double RecordTemperature(int r) const { return F(r, 47618); }

    double Curve(int r, bool curveB, double code) const {
        const int n = curveB ? 16 : 21;
        const size_t codes = curveB ? 47582 : 47540, levels = curveB ? 47476 : 47392;
        auto c = [&](int i) { return At<uint16_t>(b, r * kRecord + codes + 2 * i); };
        int i = 0;
        while (i < n && !(c(i) > code)) ++i;
        const int p = i == n ? n - 3 : i == 0 ? 0 : i - 1, q = i == n ? n - 1 : i == 0 ? 2 : i;
        const double w = (code - c(p)) / double(c(q) - c(p));
        return (1 - w) * F(r, levels + 4 * p) + w * F(r, levels + 4 * q);
    }
    double RfLevel(int r, double frequency) const {
        auto level = [&](int rec, size_t table, int i) {
            const size_t at = table + 6 * i;
            return F(rec, at + 2) - Curve(rec, false, At<uint16_t>(b, rec * kRecord + at));
        };
        const float f = static_cast<float>(frequency);
        if (f > 8.3e9 && f < 8.59e9) {
            const int i = static_cast<int>(std::floor((f - 8.3e9) / 3e6 + 0.5));
            return level(6, 46552, i) - level(6, 46552, 1) + level(r, 46552, 1);
        }
        const double x = std::max((f - 2e8) / 1e7, 0.0);
        const int i = static_cast<int>(std::floor(x));
        return (1 - (x - i)) * level(r, 38836, i) + (x - i) * level(r, 38836, i + 1);
    }
    // dBm at the input for `code` read with attenuator `att` and IF attenuator `setting`;
    // the curves were taken at attenuator 1 (setting 11) and 3 (setting 41).
    double Level(double f, int att, int setting, int code, double t) const {
        int k = 5;
        while (k < 10 && !(RecordTemperature(k) > t)) ++k;
        const double u = (t - RecordTemperature(k - 1)) / (RecordTemperature(k) - RecordTemperature(k - 1));
        const bool curveB = setting >= 15;
        const double det = (1 - u) * Curve(k - 1, curveB, code) + u * Curve(k, curveB, code);
        const double rf = (1 - u) * RfLevel(k - 1, f) + u * RfLevel(k, f);
        const double sigMinusRef = qorsim_path_gain(kOrskB, f, curveB ? 3 : 1, 1, 1, 0, 0.0, -1, t) -
                                   qorsim_path_gain(kOrskB, f, att, 1, 1, 0, 0.0, -1, t);
        return rf + sigMinusRef + det;
    }
};

}  // namespace

TEST(SimCalibration, VelmTablesCarryRippleAndDrift) {
    LoadBench(CalibrationBench(simbench::Unit(kVelmB, 2)));
    std::vector<uint8_t> unit(4096);
    qorsim_calibration_blocks(kVelmB, unit.data(), 4096, nullptr, 0);
    const std::vector<uint8_t> table = Table(kVelmB);
    ASSERT_EQ(table.size(), 458624u);
    auto record = [&](int r, size_t offset) { return At<double>(table, r * 28648 + offset); };
    for (int r = 0; r < 16; ++r) EXPECT_DOUBLE_EQ(record(r, 28496), 5.0 * r);
    // Without ripple across the high band and drift across the records the
    // corrections' checks against the true gain would prove little.
    const auto [lowest, highest] = std::minmax_element(unit.begin() + 732, unit.begin() + 732 + 426);
    EXPECT_GT(*highest - *lowest, 16);
    EXPECT_GT(std::fabs(record(15, 832 + 1600) - record(0, 832 + 1600)), 0.5);
}

TEST(SimCalibration, OrskDetectorSweepReadsBackTheInjectedLevel) {
    // Tones on the 3 MHz grid of the broadband sweep, seen 63 MHz above the
    // LO, through both IF attenuator settings.
    struct Case {
        double f, level, t;
        int att;
    } cases[] = {{5003e6, -30.0, 37.0, 1}, {2402e6, -12.0, 25.0, 0}, {8405e6, -40.0, 45.0, 2}, {11999e6, 5.0, 30.0, 3}};
    for (const auto& c : cases) {
        LoadBench(CalibrationBench(
            simbench::Unit(kOrskB, 4).NoiseFloor(-170).Temperature(c.t).Add(simbench::Cw(c.f, c.level))));
        const OrskDetector d{Table(kOrskB)};
        ASSERT_EQ(d.b.size(), 571616u);
        Unit u(kOrskB);
        u.Send({'A', static_cast<uint8_t>(c.att)});
        const int lo = static_cast<int>(c.f / 1e6) - 63;
        int codes[2];
        for (int high = 0; high < 2; ++high) {
            u.Send({'A', static_cast<uint8_t>(high ? 85 : 65)});
            u.Send({'B', static_cast<uint8_t>(lo), static_cast<uint8_t>(lo >> 8), static_cast<uint8_t>(lo + 3),
                    static_cast<uint8_t>((lo + 3) >> 8)});
            const auto reply = u.Reply(2);
            ASSERT_EQ(reply.size(), 2u);
            codes[high] = reply[0] * 256 + reply[1];
        }
        // The high setting's reading counts alone below code 600, the low setting's from 700 on.
        const double w = codes[1] < 600 ? 0.0 : codes[1] < 700 ? (codes[1] - 600) * 0.01 : 1.0;
        const double a = std::pow(10.0, d.Level(c.f, c.att, 41, codes[1], c.t) / 10.0);
        const double b = std::pow(10.0, d.Level(c.f, c.att, 11, codes[0], c.t) / 10.0);
        EXPECT_NEAR(10.0 * std::log10((1 - w) * a + w * b), c.level, 0.25) << c.f << " codes " << codes[0] << " " << codes[1];
    }
}

TEST(SimCalibration, VelmDetectorSweepReadsTheLevelThroughTheTrueGain) {
    LoadBench(CalibrationBench(
        simbench::Unit(kVelmB, 2).Temperature(41.0).NoiseFloor(-170).Add(simbench::Cw(1510.7e6, -37.0))));
    Unit u(kVelmB);
    u.Send({'D', 4});
    u.Send({'F', 0});
    for (int att = 0; att < 4; ++att) {
        u.Send({'A', static_cast<uint8_t>(att)});
        u.Send({'B', 0xDC, 0x05, 0xDF, 0x05}); // LO 1500 MHz: the tone sits at the 10.7 MHz IF
        const auto reply = u.Reply(2);
        ASSERT_EQ(reply.size(), 2u);
        const int code = reply[0] * 256 + reply[1];
        // The host's correction is the true gain's negative less the window's 3 dB.
        const double correction = -qorsim_path_gain(kVelmB, 1510.7e6, att, 1, 1, 0, 0.0, -1, 41.0) - 3.0;
        EXPECT_NEAR(code * 0.13427734375 + correction - 77.0, -37.0, 0.15) << att; // a code is 0.134 dB
    }
}
