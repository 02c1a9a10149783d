// The tracking generator: its calibration memory, read as a host searches it
// for the code of a level, its output at the cabled analyzer's input, and
// the devices under test between the two.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "bench.h"
#include "sim_tuning.h"

using namespace simtest;

namespace {

int16_t I16(const std::vector<uint8_t>& e, size_t at) { return static_cast<int16_t>(e[at] | e[at + 1] << 8); }

// The host's search for the code nearest to `amplitude`, 4.4 GHz family.
int VelmCode(const std::vector<uint8_t>& e, double f, double amplitude) {
    auto round = [](double x) { return static_cast<int>(std::floor(x + 0.5)); };
    size_t table;
    int index;
    if (f < 28e6) table = 68, index = static_cast<int>(std::floor(f * 1e-6 - 0.5));
    else if (f < 140e6) table = 124, index = std::min(round((f - 30e6) / 5e6), 21);
    else if (f < 275e6) table = 168, index = round((f - 140e6) / 1e7);
    else if (f < 550e6) table = 196, index = round((f - 280e6) / 1e7);
    else if (f < 1.1e9) table = 252, index = round((f - 550e6) / 1e7);
    else if (f < 2.2e9) table = 364, index = round((f - 1.1e9) / 1e7);
    else table = 588, index = round((f - 2.2e9) / 1e7);
    double base = I16(e, table + 2 * std::max(index, 0)) * 0.01;
    if (f >= 28e6) base -= 0.7 - f * 1e-10;
    const int j = static_cast<int>(f / 2e7);
    int best = 0;
    double bestError = 1e9;
    for (int c = 0; c < 32; ++c) {
        double s = 0;
        for (int bit = 0; bit < 5; ++bit)
            if (c & (1 << bit)) s += I16(e, 1032 + 444 * bit + 2 * j) * 0.01;
        const double error = std::fabs(amplitude - base - s);
        if (error < bestError) best = c, bestError = error;
    }
    return best;
}

// The same for the 12.4 GHz family.
int OrskCode(const std::vector<uint8_t>& e, double f, double amplitude) {
    struct T {
        double below;
        size_t offset;
        int n;
        double first, step;
    } tables[] = {{16e6, 68, 16, 0.999999e6, 1e6}, {140e6, 84, 24, 20e6, 5e6},  {275e6, 108, 14, 140e6, 1e7},
                  {550e6, 122, 28, 280e6, 1e7},   {1.1e9, 150, 56, 550e6, 1e7}, {2.2e9, 206, 112, 1.1e9, 1e7},
                  {4e9, 318, 182, 2.2e9, 1e7},    {7.2e9, 500, 322, 4e9, 1e7},  {1e99, 822, 582, 7.2e9, 1e7}};
    const T* t = tables;
    while (!(f < t->below)) ++t;
    const float x = static_cast<float>((f - t->first) / t->step);
    const int i = std::max(static_cast<int>(std::floor(x)), 0), j = std::min(i + 1, t->n - 1);
    const double w = x - i;
    double base = ((1 - w) * e[t->offset + i] + w * e[t->offset + j]) * -0.1;
    base += f >= 7.2e9 ? -0.7 : f >= 3.2e9 ? -0.3 : f >= 2.2e9 ? -((3.2e9 - f) * 0.4 / 1e9 + 0.3) : f >= 16e6 ? -0.7 : 0.0;
    const size_t row = 1404 + 16 * static_cast<size_t>(f / 1e8);
    auto r = [&](int k) { return e[row + k] * 0.02 - 2.56; };
    int best = 0;
    double bestError = 100.0;
    for (int c = 0; c < 64; ++c) {
        double a = -0.5 * c;
        if (c == 0) a += r(0);
        else if (c < 8) a += (6.0 - (c - 1)) / 6 * r(1) + (c - 1) / 6.0 * r(2);
        else if (c < 16) a += r(3);
        else if (c < 24) a += (c - 16) / 7.0 * r(3);
        else a += r(4 + (c - 24) / 8);
        const double error = std::fabs(base + 8.0 + a - amplitude);
        if (error < bestError) best = c, bestError = error;
    }
    return best;
}

// An ideal analyzer with the generator's output cabled to its input, through
// an attenuator of `attenuator` dB if one is given.
simbench::Bench GeneratorBench(int family, std::optional<double> attenuator) {
    simbench::Bench bench;
    bench.pacing = "realtime";
    bench.units = {simbench::Unit(40000002, 2).NoiseFloor(-250)};
    bench.generators = {{41000001, family, 40000002, attenuator}};
    return bench;
}

FT_HANDLE OpenGenerator() {
    const auto list = List();
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i].description.compare(0, 13, "TarvenWorksTG") == 0) {
            FT_HANDLE h = nullptr;
            if (FT_Open(static_cast<int>(i), &h) == FT_OK) return h;
        }
    return nullptr;
}

void SendTo(FT_HANDLE h, std::vector<uint8_t> payload) {
    auto wire = qorsim::EncodeFrame(payload);
    DWORD written;
    FT_Write(h, wire.data(), static_cast<DWORD>(wire.size()), &written);
}

}  // namespace

TEST(SimGenerator, SearchedCodeGivesTheLevelAtTheAnalyzer) {
    struct Case {
        int family;
        double f, amplitude, loss;
    } cases[] = {{1, 1000.03e6, -20.0, 0.0}, {2, 1000.03e6, -25.0, 6.0}, {1, 300.01e6, -12.0, 0.0}, {2, 2700.02e6, -17.5, 0.0}};
    for (const auto& c : cases) {
        LoadBench(GeneratorBench(c.family, c.loss));
        std::vector<uint8_t> eeprom(4096);
        ASSERT_EQ(qorsim_generator_eeprom(41000001, eeprom.data(), 4096), 0);
        EXPECT_EQ(eeprom[0], c.family);
        EXPECT_NE(eeprom[4], 0x80); // calibrated
        FT_HANDLE tg = OpenGenerator();
        ASSERT_NE(tg, nullptr);
        // Its memory reads back 4 bytes at a time.
        SendTo(tg, {'E', 0xFF, 0x01, 0x44, 0x00});
        EXPECT_EQ(Unit::ReadFrom(tg, 4), std::vector<uint8_t>(eeprom.begin() + 68, eeprom.begin() + 72));
        const int code = c.family == 2 ? OrskCode(eeprom, c.f, c.amplitude) : VelmCode(eeprom, c.f, c.amplitude);
        const auto word = static_cast<uint32_t>(std::floor(c.f * 0.1 + 0.5));
        SendTo(tg, {'F', static_cast<uint8_t>(word), static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word >> 16),
                    static_cast<uint8_t>(word >> 24)});
        SendTo(tg, {'A', static_cast<uint8_t>(code)});
        FT_Close(tg);

        Unit u(40000002);
        const double lo = TuneLo(u, c.f + 10.7e6 - 30e3);
        SetPath(u, 2, 1, true);
        const double b = kHighIfs - (lo - c.f);
        const double measured = ToneLevel(Capture(u, 8), b) - qorsim_path_gain(40000002, c.f, 2, 1, 1, 0, b, -1, 30.0);
        // The nearest code is within half a code step, 0.5 dB or 0.25 dB, plus the tables' rounding.
        EXPECT_NEAR(measured, c.amplitude - c.loss, c.family == 2 ? 0.35 : 0.6) << c.family << " code " << code;
    }
}

TEST(SimGenerator, GatedSweepGivesOneBlockPerPointAndRunsOutTheWindow) {
    LoadBench(GeneratorBench(1, std::nullopt));
    FT_HANDLE tg = OpenGenerator();
    ASSERT_NE(tg, nullptr);
    Unit u(40000002);
    SetPath(u, 2, 1, true);
    // 50 points of 20 kHz from 10.05 MHz: gate window 55 down to 50, 10 points per LO step, 2 before the start.
    const double start = 10.05e6, step = 20e3;
    const int points = 50;
    SendTo(tg, {'L', 0, 20, 0, points + 1});
    u.Send({'O', 2});
    u.Send({'G', 10, 0, 2, 0});
    auto word = [](uint32_t w) { return std::vector<uint8_t>{static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8),
                                                              static_cast<uint8_t>(w >> 16), static_cast<uint8_t>(w >> 24)}; };
    auto command = [](char c, std::vector<uint8_t> tail) {
        tail.insert(tail.begin(), static_cast<uint8_t>(c));
        return tail;
    };
    SendTo(tg, command('S', word(static_cast<uint32_t>(start * 0.1))));
    SendTo(tg, command('T', word(static_cast<uint32_t>(step * 0.1))));
    SendTo(tg, {'G', points, 0});
    u.Send({'N', 55, 0, 50, 0});
    const int expectedBlocks = 6 * 10 - 2 + 1; // what the host reads: points plus its extra reads
    const auto x = Samples(u.Stream(2048u * expectedBlocks));
    ASSERT_EQ(x.size(), 512u * expectedBlocks);
    EXPECT_EQ(u.Queued(), 0u);
    double first = 0, last = 0;
    for (int j = 0; j < points; ++j) {
        const double f = start + j * step;
        const int w = static_cast<int>(std::lround((f - 105555.56) / 200e3));
        const double b = kHighIfs - ((w + 54) * 200e3 - f);
        const double level = ToneLevel(x, b, 512 * j, 512);
        EXPECT_GT(level, ToneLevel(x, b + 20e3, 512 * j, 512) + 20.0) << j;
        (j == 0 ? first : last) = level - qorsim_path_gain(40000002, f, 2, 1, 1, 0, b, -1, 30.0);
    }
    EXPECT_NEAR(first, last, 1.5);
    u.Send({'O', 0});
    FT_Close(tg);
}

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
