// The factory calibration, decoded here as a host would, must give back the
// unit's true path gain: correction + 3 dB (the window) = -gain.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "sim_host.h"
#include "unit_model.h"

using namespace simtest;

namespace {

constexpr unsigned kVelmB = 30000002;
constexpr unsigned kOrskA = 30000003;
constexpr unsigned kOrskB = 30000004;

struct Blocks {
    std::vector<uint8_t> unit = std::vector<uint8_t>(4096);
    std::vector<uint8_t> table;
};

Blocks Read(unsigned serial) {
    Blocks b;
    const int size = qorsim_calibration_blocks(serial, nullptr, 0, nullptr, 0);
    b.table.resize(static_cast<size_t>(size));
    qorsim_calibration_blocks(serial, b.unit.data(), 4096, b.table.data(), size);
    return b;
}

template <typename T>
T At(const std::vector<uint8_t>& b, size_t offset) {
    T v;
    std::memcpy(&v, &b[offset], sizeof v);
    return v;
}

double Lerp(double a, double b, double w) { return (1 - w) * a + w * b; }

double Rolloff(double ifOffset) { return qorsim::UnitModel::NominalRolloffDb(ifOffset); }

// ---- 4.4 GHz family, type 2 ----

struct VelmDecoder {
    const Blocks& b;
    double Rec(int r, size_t offset, int i) const { return At<double>(b.table, r * 28648 + offset + 8 * i); }
    double RecordTemperature(int r) const { return Rec(r, 28480, 2); }

    double Correction(double f, int att, int gain, bool highIf, double ifOffset, double t, bool preamp) const {
        const auto& u = b.unit;
        const bool low = f < 150e6;
        const double g0 = At<uint16_t>(u, 2540) * 0.02 + 16.0 - 2.56, g2 = At<uint16_t>(u, 2542) * 0.02 + 12.0 - 2.56;
        double level = (At<uint16_t>(u, low ? 2546 : 2544) - 32768) * 0.001 - 10.5;
        level += gain == 0 ? g0 : gain == 2 ? -g2 : 0.0;

        double response;
        if (low) {
            const double x = (f - 1e6) / 1e6;
            const int i = std::clamp(static_cast<int>(std::floor(x)), 0, 148);
            const double w = x - i;
            response = (Lerp(u[132 + att * 150 + i], u[132 + att * 150 + i + 1], w) - 128) * 0.03125;
            if (preamp) response -= Lerp(u[2552 + i], u[2552 + i + 1], w) * 0.1; // from 1 MHz up
        } else {
            const double x = (f - 150e6) / 1e7;
            const int i = std::clamp(static_cast<int>(std::floor(x)), 0, 424);
            const double w = x - i;
            response = (Lerp(u[732 + att * 426 + i], u[732 + att * 426 + i + 1], w) - 128) * 0.0625 + 4e-9 * f;
            if (preamp) response -= Lerp(u[2702 + i], u[2702 + i + 1], w) * 0.1;
        }

        int k = 1;
        while (k <= 11 && !(RecordTemperature(k) > t)) ++k;
        const int a = k - 1;
        const double uT = (t - RecordTemperature(a)) / (RecordTemperature(a + 1) - RecordTemperature(a));
        const double x = low ? f / 1e6 : (f - 150e6) / 1e7;
        const int i = std::clamp(static_cast<int>(std::floor(x)), 0, low ? 148 : 424);
        const double s = x - i;
        const size_t part = low ? 0 : 1200;
        auto table = [&](size_t offset, int r, int j) { return Rec(r, offset + part, j); };
        auto both = [&](size_t offset, int j) { return Lerp(table(offset, a, j), table(offset, a + 1, j), uT); };
        const size_t atten = 832 + att * 576 * 8;
        const double cur = Lerp(both(atten, i), both(atten, i + 1), s);
        const double ref = Lerp(table(atten, 6, i), table(atten, 6, i + 1), s);
        const size_t side = low ? 23872 : 25072 - 1200;
        const double sideTerm = highIf ? Lerp(both(side, i), both(side, i + 1), s) : 0.0;
        const size_t pre = low ? 19264 : 20464 - 1200;
        const double preTerm = preamp ? table(pre, a, i) - table(pre, 6, i) : 0.0;
        const double temperature = preTerm + (cur - ref) + sideTerm;

        const double y = 25 - ifOffset / 5000;
        const int kk = std::clamp(static_cast<int>(std::floor(y)), 0, 49);
        const size_t ifTable = highIf ? 2436 : 2488;
        const double p = 0.01 * Lerp(u[ifTable + kk], u[ifTable + kk + 1], y - kk);
        const double ifTerm = 10 * std::log10(p) - (Rolloff(ifOffset) - 0.6);
        return level - temperature + response + att * 5.0 + ifTerm - 3.0;
    }
};

// ---- 12.4 GHz family ----

struct OrskDecoder {
    const Blocks& b;
    static constexpr size_t kRecord = 47634;
    float F(int r, size_t offset) const { return At<float>(b.table, r * kRecord + offset); }
    double RecordTemperature(int r) const { return F(r, 47618); }

    struct Seg {
        int points;
        float first;
        double step;
        size_t index;
    };
    Seg Segment(double f, int band) const {
        static const Seg segs[] = {{6, 100e3f, 50e3, 0},  {6, 400e3f, 100e3, 6},  {30, 1e6f, 1e6, 12},
                                   {24, 35e6f, 5e6, 42},  {401, 150e6f, 1e7, 66}, {351, 4e9f, 1e7, 467},
                                   {351, 5e9f, 1e7, 818}, {376, 8.25e9f, 1e7, 1169}, {376, 9.25e9f, 1e7, 1545}};
        if (band == 0) return f < 375e3 ? segs[0] : f < 975e3 ? segs[1] : f < 32.5e6 ? segs[2] : segs[3];
        return segs[std::min(band, 5) + 3];
    }
    double Column(int r, int c, size_t index) const { return F(r, 416 + c * 7684 + 4 * index); }
    double Value(int r, size_t index, bool highIf, int att) const {
        auto c = [&](int col) { return Column(r, col, index); };
        if (highIf) return att == 0 ? c(0) : att == 1 ? c(1) : c(1) - c(2) + c(att + 1);
        return att == 0 ? c(0) - c(1) + c(2) : c(att + 1);
    }
    double PathTerm(int r, double f, int band, bool highIf, int att, int gain) const {
        const Seg s = Segment(f, band);
        const double x = (f - s.first) / s.step;
        int j = static_cast<int>(std::floor(x));
        if (j + 1 >= s.points) j = s.points - 2;
        if (j < 0) j = 0;
        const double w = x - j;
        const float step = F(r, 47614);
        const double gainOffset = gain == 0 ? 0.0 : gain == 1 ? step : static_cast<float>(step + 12.0f);
        return -(1 - w) * Value(r, s.index + j, highIf, att) - w * Value(r, s.index + j + 1, highIf, att) - gainOffset;
    }
    double Response(double f, int band, bool highIf, int att, int gain, double t) const {
        int k = 5;
        while (k < 10 && !(RecordTemperature(k) > t)) ++k;
        const double u = std::clamp((t - RecordTemperature(k - 1)) / (RecordTemperature(k) - RecordTemperature(k - 1)), 0.0, 1.0);
        return Lerp(PathTerm(k - 1, f, band, highIf, att, gain), PathTerm(k, f, band, highIf, att, gain), u);
    }
    double Correction(double f, int band, bool highIf, int att, int gain, double ifOffset, double t) const {
        const double y = 25 - ifOffset / 5000;
        const int k = std::clamp(static_cast<int>(std::floor(y)), 0, 49);
        const size_t entry = highIf ? 4 : 0;
        const double p = Lerp(F(6, 8 * k + entry), F(6, 8 * (k + 1) + entry), y - k);
        return Response(f, band, highIf, att, gain, t) + 10 * std::log10(p) - Rolloff(ifOffset) - 3.0;
    }
    // Load's crossover search and the library's band rule.
    double Crossover() const {
        int i = 0;
        while (i < 26 && !(Column(6, 2, 1169 + i) > Column(6, 2, 818 + 325 + i))) ++i;
        return std::floor((i * 1e7 + 8.245e9) / 1.28e7 + 0.5) * 64 * 200000.0;
    }
    // Detector code to power, as the broadband sweep reads it.
    double Curve(int r, bool curveB, double code) const {
        const int n = curveB ? 16 : 21;
        const size_t codes = curveB ? 47582 : 47540, levels = curveB ? 47476 : 47392;
        auto c = [&](int i) { return At<uint16_t>(b.table, r * kRecord + codes + 2 * i); };
        int i = 0;
        while (i < n && !(c(i) > code)) ++i;
        const int p = i == n ? n - 3 : i == 0 ? 0 : i - 1, q = i == n ? n - 1 : i == 0 ? 2 : i;
        const double w = (code - c(p)) / double(c(q) - c(p));
        return (1 - w) * F(r, levels + 4 * p) + w * F(r, levels + 4 * q);
    }
    double RfLevel(int r, double frequency) const {
        auto level = [&](int rec, size_t table, int i) {
            const size_t at = table + 6 * i;
            return F(rec, at + 2) - Curve(rec, false, At<uint16_t>(b.table, rec * kRecord + at));
        };
        const float f = static_cast<float>(frequency);
        if (f > 8.3e9 && f < 8.59e9) {
            const int i = static_cast<int>(std::floor((f - 8.3e9) / 3e6 + 0.5));
            return level(6, 46552, i) - level(6, 46552, 1) + level(r, 46552, 1);
        }
        const double x = std::max((f - 2e8) / 1e7, 0.0);
        const int i = static_cast<int>(std::floor(x));
        return Lerp(level(r, 38836, i), level(r, 38836, i + 1), x - i);
    }
    double DetectorLevel(double f, int att, int setting, int code, double t) const {
        int k = 5;
        while (k < 10 && !(RecordTemperature(k) > t)) ++k;
        const double u = (t - RecordTemperature(k - 1)) / (RecordTemperature(k) - RecordTemperature(k - 1));
        const bool curveB = setting >= 15;
        const double det = Lerp(Curve(k - 1, curveB, code), Curve(k, curveB, code), u);
        const double ref = Response(f, BandOf(f), true, curveB ? 3 : 1, 1, t);
        const double sig = Response(f, BandOf(f), true, att, 1, t);
        const double rf = Lerp(RfLevel(k - 1, f), RfLevel(k, f), u);
        return rf + sig + det - ref;
    }
    int BandOf(double f) const {
        return f < 150e6 ? 0 : f < 4.0064e9 ? 1 : f < 6.5024e9 ? 2 : f < Crossover() ? 3 : f < 9.7536e9 ? 4 : 5;
    }
};

void LoadCalibrationBench() {
    LoadBench(R"({"clock": "fast", "units": [{"serial": 30000002, "type": 2}, {"serial": 30000003, "type": 3},
                 {"serial": 30000004, "type": 4}]})");
}

}  // namespace

TEST(SimCalibration, VelmTablesGiveBackTheTrueGain) {
    LoadCalibrationBench();
    const Blocks blocks = Read(kVelmB);
    ASSERT_EQ(blocks.table.size(), 458624u);
    const VelmDecoder d{blocks};
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> freq(1.2e6, 4.39e9), lowFreq(1.2e6, 149e6), offset(-110e3, 110e3),
        temp(0.0, 70.0);
    double worst = 0;
    for (int n = 0; n < 2000; ++n) {
        const double f = n % 3 == 0 ? lowFreq(rng) : freq(rng);
        const int att = n % 4, gain = (n / 4) % 3;
        const bool highIf = n % 2, preamp = (n / 2) % 3 == 0;
        const double b = offset(rng), t = temp(rng);
        const double gainDb = qorsim_path_gain(kVelmB, f, att, gain, highIf, preamp, b, -1, t);
        const double error = d.Correction(f, att, gain, highIf, b, t, preamp) + 3.0 + gainDb;
        worst = std::max(worst, std::fabs(error));
        ASSERT_LT(std::fabs(error), 0.15) << f << " att " << att << " gain " << gain << " highIf " << highIf
                                          << " preamp " << preamp << " b " << b << " t " << t;
    }
    RecordProperty("worst_db", std::to_string(worst));
}

TEST(SimCalibration, VelmTablesCarryStructure) {
    LoadCalibrationBench();
    const Blocks blocks = Read(kVelmB);
    const VelmDecoder d{blocks};
    for (int r = 0; r < 16; ++r) EXPECT_DOUBLE_EQ(d.RecordTemperature(r), 5.0 * r);
    // Response ripple across the high band, and temperature drift across the records.
    int lowest = 255, highest = 0;
    for (int i = 0; i < 426; ++i) {
        lowest = std::min<int>(lowest, blocks.unit[732 + i]);
        highest = std::max<int>(highest, blocks.unit[732 + i]);
    }
    EXPECT_GT(highest - lowest, 16);
    EXPECT_GT(std::fabs(d.Rec(15, 832, 200) - d.Rec(0, 832, 200)), 0.5);
}

TEST(SimCalibration, OrskTablesGiveBackTheTrueGain) {
    LoadCalibrationBench();
    for (unsigned serial : {kOrskA, kOrskB}) {
        const Blocks blocks = Read(serial);
        ASSERT_EQ(blocks.table.size(), 571616u);
        const OrskDecoder d{blocks};
        // The unit carries its own low-frequency data, so a host leaves it as it is.
        EXPECT_LT(d.Column(7, 0, 0) - d.Column(7, 0, 13), -0.5);
        std::mt19937 rng(serial);
        std::uniform_real_distribution<double> logFreq(std::log(120e3), std::log(12.9e9)), offset(-110e3, 110e3),
            temp(16.0, 54.0);
        for (int n = 0; n < 3000; ++n) {
            const double f = std::exp(logFreq(rng));
            const int att = n % 4, gain = (n / 4) % 3;
            const bool highIf = (n / 12) % 2;
            const double b = offset(rng), t = temp(rng);
            const int band = d.BandOf(f);
            const double gainDb = qorsim_path_gain(serial, f, att, gain, highIf, 0, b, band, t);
            const double error = d.Correction(f, band, highIf, att, gain, b, t) + 3.0 + gainDb;
            ASSERT_LT(std::fabs(error), 0.15) << serial << " f " << f << " band " << band << " att " << att
                                              << " gain " << gain << " highIf " << highIf << " t " << t;
        }
    }
}

TEST(SimCalibration, BulkReadServesTheSameBlocks) {
    LoadCalibrationBench();
    const Blocks blocks = Read(kVelmB);
    Unit u(kVelmB);
    u.Send({'E', 0xF1, 0xA5, 0x03, 0x72});
    const auto data = u.Stream(0x72000 + 4);
    ASSERT_EQ(data.size(), 0x72000u + 4);
    EXPECT_TRUE(std::equal(blocks.unit.begin(), blocks.unit.end(), data.begin() + 4));
    EXPECT_TRUE(std::equal(blocks.table.begin(), blocks.table.end(), data.begin() + 4 + 4096));
    // And a page read of the unit block.
    u.Send({'E', 0xFF, 0x01, 0xF4, 0x09}); // address 2548
    EXPECT_EQ(u.Reply(4), std::vector<uint8_t>(blocks.unit.begin() + 2548, blocks.unit.begin() + 2552));
}

TEST(SimCalibration, DownloadEndpointFileHasThePathAndTheTable) {
    LoadCalibrationBench();
    const std::string root = ::testing::TempDir() + "qorsim_endpoint";
    ASSERT_EQ(qorsim_write_calibration_files(kOrskB, root.c_str()), 0);
    FILE* file = std::fopen((root + "/custdata/P3000/D30000004.bin").c_str(), "rb");
    ASSERT_NE(file, nullptr);
    std::vector<uint8_t> content(600000);
    content.resize(std::fread(content.data(), 1, content.size(), file));
    std::fclose(file);
    EXPECT_EQ(content, Read(kOrskB).table);
}

TEST(SimCalibration, DetectorSweepReadsBackTheInjectedLevel) {
    // Tones on the 3 MHz grid of the broadband sweep, seen 63 MHz above the
    // LO, through both IF attenuator settings.
    struct Case {
        double f, level, t;
        int att;
    } cases[] = {{5003e6, -30.0, 37.0, 1}, {2402e6, -12.0, 25.0, 0}, {8405e6, -40.0, 45.0, 2}, {11999e6, 5.0, 30.0, 3}};
    for (const auto& c : cases) {
        LoadBench(R"({"clock": "fast", "units": [{"serial": 30000004, "type": 4, "noiseFloor": -170, "temperature": )" +
                  std::to_string(c.t) + R"(, "signals": [{"kind": "cw", "frequency": )" + std::to_string(c.f) +
                  R"(, "level": )" + std::to_string(c.level) + "}]}]}");
        const Blocks blocks = Read(kOrskB);
        const OrskDecoder d{blocks};
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
        const double a = std::pow(10.0, d.DetectorLevel(c.f, c.att, 41, codes[1], c.t) / 10.0);
        const double b = std::pow(10.0, d.DetectorLevel(c.f, c.att, 11, codes[0], c.t) / 10.0);
        EXPECT_NEAR(10.0 * std::log10((1 - w) * a + w * b), c.level, 0.25) << c.f << " codes " << codes[0] << " " << codes[1];
    }
}

TEST(SimCalibration, VelmDetectorSweepReadsTheLevelThroughTheCorrection) {
    LoadBench(R"({"clock": "fast", "units": [{"serial": 30000002, "type": 2, "temperature": 41.0, "noiseFloor": -170,
                 "signals": [{"kind": "cw", "frequency": 1510.7e6, "level": -37.0}]}]})");
    const Blocks blocks = Read(kVelmB);
    const VelmDecoder d{blocks};
    Unit u(kVelmB);
    u.Send({'D', 4});
    u.Send({'F', 0});
    for (int att = 0; att < 4; ++att) {
        u.Send({'A', static_cast<uint8_t>(att)});
        u.Send({'B', 0xDC, 0x05, 0xDF, 0x05}); // LO 1500 MHz: the tone sits at the 10.7 MHz IF
        const auto reply = u.Reply(2);
        ASSERT_EQ(reply.size(), 2u);
        const int code = reply[0] * 256 + reply[1];
        const double level = code * 0.13427734375 + d.Correction(1510.7e6, att, 1, true, 0.0, 41.0, false) - 77.0;
        EXPECT_NEAR(level, -37.0, 0.15) << att; // a code is 0.134 dB
    }
}
