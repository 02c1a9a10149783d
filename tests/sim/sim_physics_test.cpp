// Tones, images, noise and clipping as the receiver renders them, looked at
// with a plain DFT and compared with the unit's true path gain.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim_tuning.h"

using namespace simtest;

namespace {

constexpr unsigned kVelmB = 20000002;
constexpr unsigned kOrskB = 20000004;

using simbench::Cw;
using Signals = std::vector<simbench::Signal>;

simbench::Bench PhysicsBench(double noiseFloor, const Signals& velmSignals, const Signals& orskSignals) {
    simbench::Bench bench;
    bench.units = {simbench::Unit(kVelmB, 2).Temperature(31.5).NoiseFloor(noiseFloor),
                   simbench::Unit(kOrskB, 4).Temperature(37.0).NoiseFloor(noiseFloor)};
    bench.units[0].signals = velmSignals;
    bench.units[1].signals = orskSignals;
    return bench;
}

// What the 4.4 GHz unit captures of `signals` in `blocks` through the high IF,
// attenuator 0 and gain `gain`, with its LO at 1010.7 MHz.
struct Look {
    std::vector<std::complex<double>> x;
    double lo;
};
Look HighIfCapture(const Signals& signals, int gain, int blocks) {
    LoadBench(PhysicsBench(-250.0, signals, {}));
    Unit u(kVelmB);
    const double lo = TuneLo(u, 1010.7e6);
    SetPath(u, 0, gain, true);
    return {Capture(u, blocks), lo};
}

}  // namespace

TEST(SimPhysics, ToneLandsAtItsOffsetAndLevelOnBothIfsAndBothSides) {
    // One tone below the LO and one above it (the image), on each IF path.
    struct Case {
        double lo, f;
        bool highIf;
        int atten, gain;
    } cases[] = {
        {1010.7e6, 1000.03e6, true, 1, 1},             // below the LO: b = IFs - (lo - f)
        {1010.7e6, 1021.37e6, true, 0, 2},             // above the LO: the image, mirrored
        {402.9e6, 400.05e6, false, 2, 1},              // low IF
        {402.9e6, 405.76e6, false, 3, 0},              // low IF image
    };
    for (const auto& c : cases) {
        LoadBench(PhysicsBench(-250.0, {Cw(c.f, -40.0)}, {}));
        Unit u(kVelmB);
        const double lo = TuneLo(u, c.lo);
        SetPath(u, c.atten, c.gain, c.highIf);
        const double ifs = c.highIf ? kHighIfs : kLowIfs;
        const double b = ifs - std::fabs(c.f - lo);
        const auto x = Capture(u, 8);
        const double expected = -40.0 + qorsim_path_gain(kVelmB, c.f, c.atten, c.gain, c.highIf, 0, b, -1, 31.5);
        EXPECT_NEAR(ToneLevel(x, b), expected, 0.05) << c.f;
        EXPECT_LT(ToneLevel(x, -b), expected - 60.0) << "nothing at the mirror place " << c.f;
    }
}

TEST(SimPhysics, FirstLoOfTheUpperBandsInvertsTheSpectrum) {
    // Band 2 of the 12.4 GHz family: first LO 7.8 GHz above, last LO above the first IF.
    LoadBench(PhysicsBench(-250.0, {}, {Cw(5.0e9, -30.0), Cw(5.0e9 + 30e3, -40.0)}));
    Unit u(kOrskB);
    u.Send({'A', 131}); // first-LO path 0
    const double f1 = 7.8e9 - 5.0e9;
    const double lo = TuneLo(u, f1 + 10.7e6);
    SetPath(u, 1, 1, true, true, 2);
    const auto x = Capture(u, 8);
    const double b = kHighIfs - (lo - f1);
    const double expected = -30.0 + qorsim_path_gain(kOrskB, 5.0e9, 1, 1, 1, 0, b, 2, 37.0);
    EXPECT_NEAR(ToneLevel(x, b), expected, 0.05);
    // Higher RF, lower in the samples.
    EXPECT_NEAR(ToneLevel(x, b - 30e3), -40.0 + qorsim_path_gain(kOrskB, 5.0e9 + 30e3, 1, 1, 1, 0, b - 30e3, 2, 37.0), 0.05);
}

TEST(SimPhysics, HardwareHopsStepTheLoBy200kHzPerBlock) {
    // A tone 50 kHz above the middle of step 5100: the engines' bin mapping
    // n x 200 kHz - 10.7 MHz + y, with the 5555.56 Hz mix.
    const double f = 5100 * 200e3 - 10.7e6 + 50e3;
    LoadBench(PhysicsBench(-250.0, {Cw(f, -35.0)}, {}));
    Unit u(kVelmB);
    SetPath(u, 1, 1, true);
    u.Send({'N', 0xEC, 0x13, 0xEE, 0x13}); // 5100 to 5102
    const auto x = Samples(u.Stream(3 * 2048));
    ASSERT_EQ(x.size(), 3u * 512);
    for (int k = 0; k < 2; ++k) {
        const double b = kHighIfs - ((5100 + k) * 200e3 - f);
        const double expected = -35.0 + qorsim_path_gain(kVelmB, f, 1, 1, 1, 0, b, -1, 31.5);
        EXPECT_NEAR(ToneLevel(x, b, 512 * k, 512), expected, 0.05) << k;
    }
}

TEST(SimPhysics, FramedProgramBlocksFollowTheirSteps) {
    const double f = 21000 * 200e3 - 10.7e6 - 20e3; // 4.1893 GHz, band 2 of the 12.4 GHz family
    LoadBench(PhysicsBench(-250.0, {}, {Cw(f, -30.0)}));
    Unit u(kOrskB);
    SetPath(u, 1, 1, true, true, 2);
    u.Send({'Y', 0, 1, 0x08, 0x52}); // 21000, two steps
    u.Send({'X', 1, 2});
    ASSERT_EQ(u.Stream(4), (std::vector<uint8_t>{0xE1, 0x1E, 0, 1}));
    const auto x = Samples(u.Stream(4 * 2048));
    u.Send({'3'});
    const double b = kHighIfs - (21000 * 200e3 - f);
    const double expected = -30.0 + qorsim_path_gain(kOrskB, f, 1, 1, 1, 0, b, -1, 37.0);
    EXPECT_NEAR(ToneLevel(x, b, 0, 512), expected, 0.05);
    EXPECT_NEAR(ToneLevel(x, b, 512, 512), expected, 0.05);
}

TEST(SimPhysics, NoiseDensityMatchesTheFloorThroughTheIfFilter) {
    LoadBench(PhysicsBench(-120.0, {}, {}));
    Unit u(kVelmB);
    const double lo = TuneLo(u, 1010.7e6);
    SetPath(u, 0, 2, true);
    auto x = Capture(u, 250);
    const auto more = Capture(u, 250);
    x.insert(x.end(), more.begin(), more.end());
    // Density in dB full scale per Hz from 512-point DFTs of each block, over 21 bins around `b`.
    auto density = [&](double b) {
        double sum = 0;
        int count = 0;
        for (int k = -10; k <= 10; ++k) {
            const std::complex<double> step = std::polar(1.0, -2.0 * 3.14159265358979 * (b + k * kFs / 512) / kFs);
            for (size_t block = 0; block + 512 <= x.size(); block += 512, ++count) {
                std::complex<double> acc, rotor = 1.0;
                for (size_t n = 0; n < 512; ++n, rotor *= step) acc += x[block + n] * rotor;
                sum += std::norm(acc / 512.0);
            }
        }
        return 10.0 * std::log10(sum / count * 512 / kFs);
    };
    for (double b : {0.0, 150e3, -200e3}) {
        const double expected = -120.0 + qorsim_path_gain(kVelmB, lo - kHighIfs + b, 0, 2, 1, 0, b, -1, 31.5);
        EXPECT_NEAR(density(b), expected, 0.25) << b;
    }
}

TEST(SimPhysics, ClipsAtFullScale) {
    const auto x = HighIfCapture({Cw(1000.03e6, 15.0)}, 2, 2).x;
    double peak = 0;
    int railed = 0;
    for (const auto& v : x) {
        peak = std::max({peak, std::fabs(v.real()), std::fabs(v.imag())});
        railed += std::fabs(v.real()) >= 32767.0 / 32768.0;
    }
    EXPECT_LE(peak, 1.0);
    EXPECT_GT(railed, 100);
}

TEST(SimPhysics, ContinuousStreamIsPhaseContinuousAcrossBlocks) {
    LoadBench(PhysicsBench(-250.0, {Cw(1000.0123e6, -20.0)}, {}));
    Unit u(kVelmB);
    const double lo = TuneLo(u, 1010.7e6);
    SetPath(u, 0, 1, true);
    u.Send({'T'});
    u.Stream(4);
    const auto x = Samples(u.Stream(6 * 16384));
    u.Send({'3'});
    const double step = 2.0 * 3.14159265358979 * (kHighIfs - (lo - 1000.0123e6)) / kFs;
    double worst = 0;
    for (size_t n = 1; n < x.size(); ++n) worst = std::max(worst, std::fabs(std::arg(x[n] * std::conj(x[n - 1])) - step));
    EXPECT_LT(worst, 2e-3);
}

TEST(SimPhysics, AmAndFmCarriersCarryTheirTone) {
    simbench::Signal fmCarrier = Cw(1000.03e6, -30), amCarrier = Cw(999.93e6, -30);
    fmCarrier.kind = "fm";
    fmCarrier.deviation = 5000;
    fmCarrier.tone = 1000;
    amCarrier.kind = "am";
    amCarrier.depth = 0.5;
    amCarrier.tone = 1000;
    const auto [x, lo] = HighIfCapture({fmCarrier, amCarrier}, 1, 32);
    const double fm = kHighIfs - (lo - 1000.03e6), am = kHighIfs - (lo - 999.93e6);
    // AM at depth 0.5: sidebands 12 dB under the carrier; FM with beta 5: carrier at J0(5) = -19.7 dB.
    EXPECT_NEAR(ToneLevel(x, am + 1000.0) - ToneLevel(x, am), -12.04, 0.3);
    const double unmodulated = -30.0 + qorsim_path_gain(kVelmB, 1000.03e6, 0, 1, 1, 0, fm, -1, 31.5);
    EXPECT_NEAR(ToneLevel(x, fm) - unmodulated, 20.0 * std::log10(0.1775968), 0.5);
}

// A carrier hopping over three channels, 2 ms on each: no 256-sample window
// finds it on two channels, and over 12 rounds each channel carries it at
// its level in a third of the windows that lie within one dwell.
TEST(SimPhysics, HoppingCarrierTakesItsChannelsInTurn) {
    simbench::Signal hop = Cw(0.0, -30.0);
    hop.kind = "hop";
    hop.frequencies = {1000.02e6, 1000.05e6, 1000.09e6};
    hop.dwell = 0.002;
    const auto [x, lo] = HighIfCapture({hop}, 1, 68);  // 34816 samples: 71.6 ms, 12 rounds
    constexpr size_t kWindow = 256;
    int on[3] = {}, windows = 0;
    for (size_t from = 0; from + kWindow <= x.size(); from += kWindow) {
        int carrying = 0, which = -1;
        for (int k = 0; k < 3; ++k) {
            const double b = kHighIfs - (lo - hop.frequencies[k]);
            const double expected = -30.0 + qorsim_path_gain(kVelmB, hop.frequencies[k], 0, 1, 1, 0, b, -1, 31.5);
            if (ToneLevel(x, b, from, kWindow) > expected - 1.0) ++carrying, which = k;
        }
        EXPECT_LE(carrying, 1) << "at sample " << from;
        if (carrying == 1) ++on[which];
        ++windows;
    }
    // A window across a change of channel carries none of them whole.
    const int carried = on[0] + on[1] + on[2];
    EXPECT_GT(carried, windows * 0.6);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(on[k], carried / 3.0, carried * 0.06) << "channel " << k;
}

// A sideband signal is its tone alone, on its own side of the suppressed
// carrier; a keyed carrier is on for its duration of each period, with soft edges.
TEST(SimPhysics, SidebandAndKeyedCarriers) {
    for (const char* kind : {"usb", "lsb"}) {
        simbench::Signal sideband = Cw(1000.03e6, -30);
        sideband.kind = kind;
        sideband.tone = 1500;
        const auto [x, lo] = HighIfCapture({sideband}, 1, 32);
        const double b = kHighIfs - (lo - 1000.03e6);
        const double side = std::string(kind) == "usb" ? 1500.0 : -1500.0;
        const double full = -30.0 + qorsim_path_gain(kVelmB, 1000.03e6, 0, 1, 1, 0, b, -1, 31.5);
        EXPECT_NEAR(ToneLevel(x, b + side), full, 0.3) << kind;
        // The plain DFT of the capture leaks the tone some 45 dB into bins 1500 Hz away.
        EXPECT_LT(ToneLevel(x, b - side), full - 40.0) << kind;
        EXPECT_LT(ToneLevel(x, b), full - 40.0) << kind << ": the carrier is suppressed";
    }
    simbench::Signal keyed = Cw(1000.03e6, -30);
    keyed.kind = "keyed";
    keyed.period = 0.01;
    keyed.duration = 0.005;
    keyed.rise = 0.0005;
    const auto x = HighIfCapture({keyed}, 1, 38).x;  // four periods
    double peak = 0.0;
    for (const auto& v : x) peak = std::max(peak, std::abs(v));
    int on = 0, edge = 0;
    for (const auto& v : x) {
        on += std::abs(v) > 0.5 * peak;
        edge += std::abs(v) > 0.1 * peak && std::abs(v) < 0.9 * peak;
    }
    // Above half the peak for the on-time less half an edge at either end.
    EXPECT_NEAR(static_cast<double>(on) / x.size(), (0.005 - 0.0005) / 0.01, 0.01);
    // Eight raised-cosine edges of 0.5 ms in the four periods, 0.59 of each
    // between a tenth and nine tenths of the peak; a hard key would have none.
    EXPECT_NEAR(edge, 8 * 0.59 * 0.0005 * 486111.1, 60.0);
}
