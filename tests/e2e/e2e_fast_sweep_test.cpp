// Hopped sweeps through the C API: tones over the whole range of both
// families and combs at every offset within a step, image rejection, partial
// results and the hop windows the unit is sent.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "e2e_bench.h"

namespace {

using namespace e2e;

// A pair of units for each group of tests: accuracy, rejection, delivery.
constexpr unsigned kVelmB = 30000002, kOrskB = 30000004;
constexpr unsigned kVelmReject = 50000002, kOrskReject = 50000004;
constexpr unsigned kVelmDelivery = 40000002, kOrskDelivery = 40000004;
constexpr double kVelmComb = 1003e6, kOrskComb = 5703e6;

// Tones over the whole range, none within 1 MHz of another's image 21.4 MHz
// below it nor of the first mixer's spurs; and a comb of 45 tones 2.038 MHz
// apart from the edge of a step, which puts them 38 kHz further on within
// their steps each time and their images between them.
std::vector<Tone> WithComb(std::vector<Tone> spread, double comb) {
    for (int i = 0; i < 45; ++i) spread.push_back({comb + i * 2.038e6, -30.0 - (i % 3) * 5});
    return spread;
}
const std::vector<Tone> kVelmTones = WithComb({{5.3e6, -30}, {47.137e6, -40}, {151.3e6, -35}, {700.04e6, -30},
                                               {1400.1e6, -45}, {2200.173e6, -30}, {2999.961e6, -35},
                                               {3700.02e6, -40}, {4390.0e6, -30}},
                                              kVelmComb);
const std::vector<Tone> kOrskTones = WithComb({{5.3e6, -30}, {120.1e6, -40}, {1500.137e6, -35}, {3900.2e6, -30},
                                               {4500.061e6, -45}, {6000.3e6, -30}, {6800.1e6, -35},
                                               {8300.05e6, -40}, {9200.1e6, -30}, {10000.3e6, -35},
                                               {11500.07e6, -30}, {12390.0e6, -40}},
                                              kOrskComb);
const std::vector<Tone> kVelmRejectTones = {{3.1e6, -30},  {10.05e6, -35},   {40.0e6, -40},
                                            {30.0e6, -35}, {530.037e6, -30}, {571.1e6, -35}};
const std::vector<Tone> kOrskRejectTones = {{3.1e6, -30}, {10.05e6, -35}, {7030.037e6, -30}, {9071.1e6, -35}};

// Units at 30 C with calibration on board.
const std::vector<BenchUnit>& Scene() {
    static const std::vector<BenchUnit> units = {
        {kVelmB, 2, kVelmTones, -140.0, true, 30.0},
        {kOrskB, 4, kOrskTones, -140.0, true, 30.0},
        {kVelmReject, 2, kVelmRejectTones, -140.0, true, 30.0},
        {kOrskReject, 4, kOrskRejectTones, -140.0, true, 30.0},
        {kVelmDelivery, 2, {{150.1e6, -30}, {7030.0e6, -30}}, -140.0, true, 30.0},
        {kOrskDelivery, 4, {{150.1e6, -30}, {7030.0e6, -30}}, -140.0, true, 30.0},
    };
    return units;
}

class FastSweep : public SceneSuite<Scene> {
protected:
    // One whole sweep from `start` to `stop`.
    static Trace Sweep(unsigned serial, double start, double stop, double rbw, bool reject, int shape = 1) {
        const Trace t = Measure(devices_.at(serial), Between(start, stop, rbw, reject, shape));
        EXPECT_EQ(qorNoError, t.initiate);
        EXPECT_EQ(qorNoError, t.get);
        return t;
    }
};

// Every tone that lies in the trace within one bin and `tolerance` dB of its level.
void ExpectFastTones(const Trace& t, const std::vector<Tone>& tones, double tolerance = 0.5) {
    ExpectTones(t, tones, tolerance, std::min(20 * t.binSize, 300e3));
}

// Under the sanitizers a step costs many times more: there the full range is
// swept with one bin a step.
constexpr double kFullRangeRbw = kAnySanitizer ? 250000.0 : 100000.0;
constexpr double kFullRangeTolerance = kAnySanitizer ? 0.55 : 0.5;

TEST_F(FastSweep, FullRangeOfEachFamily) {
    ExpectFastTones(Sweep(kVelmB, 1e6, 4.4e9, kFullRangeRbw, false), kVelmTones, kFullRangeTolerance);
    ExpectFastTones(Sweep(kOrskB, 1e6, 12.4e9, kFullRangeRbw, false), kOrskTones, kFullRangeTolerance);
}

// The comb over 100 MHz at RBWs from 6.5 to 250 kHz in both shapes, some
// with rejection. Where the unit's way of measuring bounds the reading more
// widely, the row says why:
// - the Gaussian window below 9.99 kHz wants more than the 256 samples of a
//   step and is cut to them: its response is barely wider than a bin, so a
//   tone half-way between two bins reads up to 0.86 dB low, and one at the
//   edge of a step, where the kept bins of two steps lie 1.32 bins apart (a
//   step takes 105 bins of 1898.9 Hz for 200 kHz), up to 1.5 dB low;
// - the flat top at 160 to 194 kHz is flat over some 60 kHz around a tone,
//   so bins corrected for IF offsets up to 60 kHz from the tone's carry it,
//   and the passband's swell of 0.85 dB towards 80 kHz lifts them by 0.6 dB;
// - the flat top of 8 points (194 to 210 kHz) reads a tone half-way between
//   its bins 0.52 dB low; with rejection the two views' bins lie differently
//   about the tone, and their minimum reads up to 0.8 dB low;
// - above 210 kHz a step is one bin of power with 2.5 dB for the window's 3:
//   the passband's mean over a step, so a tone at a step's centre reads 0.5
//   dB low.
TEST_F(FastSweep, CombAtEveryRbwAndShape) {
    struct Case {
        double rbw;
        int shape;
        bool reject;
        double tolerance;
    };
    const Case cases[] = {
        {6500.0, 1, false, 0.5},    {6500.0, 2, false, 1.55},   {9900.0, 2, true, 1.55},
        {12000.0, 1, false, 0.5},   {12000.0, 2, false, 0.5},   {30000.0, 1, false, 0.5},
        {30000.0, 2, true, 0.5},    {100000.0, 1, true, 0.5},   {100000.0, 2, false, 0.5},
        {150000.0, 1, false, 0.5},  {150000.0, 2, true, 0.5},   {180000.0, 1, false, 0.65},
        {200000.0, 1, false, 0.55}, {200000.0, 1, true, 0.85},  {200000.0, 2, false, 0.5},
        {250000.0, 1, true, 0.55},  {250000.0, 2, false, 0.55}};
    for (const Case& c : cases) {
        for (const auto& [serial, comb, tones] : {std::make_tuple(kVelmB, kVelmComb, &kVelmTones),
                                                  std::make_tuple(kOrskB, kOrskComb, &kOrskTones)}) {
            SCOPED_TRACE(testing::Message() << "rbw " << c.rbw << " shape " << c.shape << " reject " << c.reject
                                            << " comb " << comb);
            ExpectFastTones(Sweep(serial, comb - 3e6, comb + 97e6, c.rbw, c.reject, c.shape), *tones, c.tolerance);
        }
    }
}

// A tone shows a second time 21.4 MHz below itself, seen from the LO above it
// on the other side; with rejection on, the partner view 107 steps lower
// removes that response while the tone keeps its level. The strongest reading
// where the image lands: moved by up to twice the offset of the tone within its step.
double ImageLevel(const Trace& t, double toneFrequency) { return t.LevelNear(toneFrequency - 21.4e6, 220e3); }

TEST_F(FastSweep, ImagesVanishAndTonesStay) {
    for (const double rbw : {6500.0, 30000.0, 250000.0}) {
        for (const auto& [serial, start, tones] : {std::make_tuple(kVelmReject, 500e6, &kVelmRejectTones),
                                                   std::make_tuple(kOrskReject, 7000e6, &kOrskRejectTones)}) {
            SCOPED_TRACE(testing::Message() << "rbw " << rbw << " start " << start);
            const Trace plain = Sweep(serial, start, start + 100e6, rbw, false);
            const Trace rejected = Sweep(serial, start, start + 100e6, rbw, true);
            ExpectFastTones(rejected, *tones, rbw > 210000.0 ? 0.55 : 0.5);  // one bin a step: see the comb
            const Tone& tone = (*tones)[tones->size() - 2];  // the one with its image in the span
            const double image = ImageLevel(plain, tone.frequency);
            EXPECT_GT(image, tone.level - 3.0) << "the image shows without rejection";
            EXPECT_LT(ImageLevel(rejected, tone.frequency), image - 40.0);
        }
    }
}

// Below 16.1 MHz no LO lies 21.4 MHz under a signal: a low-band pass ahead of
// each sweep (a window from LO index 133 down) stands in for the partner, and
// the first segment begins at index 27.
TEST_F(FastSweep, LowBandPassAheadOfEachSweep) {
    TheSim()->clearCommandLog(kVelmReject);
    // Without an FFT the substitute spectra are not used: the tones keep their level.
    const Trace t = Sweep(kVelmReject, 1e6, 101e6, 250000.0, true);
    ExpectFastTones(t, {kVelmRejectTones[0], kVelmRejectTones[1], kVelmRejectTones[2]}, 0.55);
    std::vector<std::pair<int, int>> windows;
    for (const auto& c : Commands(kVelmReject)) {
        if (c[0] == 'N' && c.size() == 5) windows.emplace_back(c[1] | c[2] << 8, c[3] | c[4] << 8);
    }
    ASSERT_GE(windows.size(), 2u);
    // Start 1 MHz: the steps start at index 58, the partners would begin 107 lower.
    const int lowSteps = 27 - (58 - 107);
    EXPECT_EQ(windows[0], std::make_pair(133, 133 - lowSteps));
    EXPECT_EQ(windows[1].first, 27);
    EXPECT_EQ(windows[1].second, 58 + 107 - 1);
}

// From 100 Hz the partners would begin 81 steps below index 27, one more
// than there are substitute spectra: the first step writes no bin. Below
// 16.1 MHz the substitutes, views from LOs half a step above the grid, keep
// the real tones.
//
// The substitutes reject less at wide RBWs. Their LO lies 100 kHz from the
// step's, so a real tone stays on its bin while an image moves by 200 kHz,
// and the bin midway sees the image 100 kHz off in both views. At 100 kHz
// (16-point FFT of 30.4 kHz bins, 7 bins a step) that is 3.3 bins, where the
// flat-top window is only 16.8 dB down: the 30 MHz tone's image at the edges
// of the steps around 8.6 MHz keeps a remnant at 8.5 and 8.7 MHz.
TEST_F(FastSweep, LowBandPassFromNearZero) {
    for (const auto& [rbw, drop] : {std::pair{6500.0, 40.0}, std::pair{30000.0, 40.0}, std::pair{100000.0, 13.0}}) {
        SCOPED_TRACE(testing::Message() << "rbw " << rbw);
        const Trace t = Sweep(kVelmReject, 100.0, 100e6 + 100.0, rbw, true);
        EXPECT_NEAR(t.startFreq, 100.0, t.binSize);
        ExpectFastTones(t, {kVelmRejectTones.begin(), kVelmRejectTones.begin() + 4});
        // The 30 MHz tone's image at 8.6 MHz is gone.
        const Trace plain = Sweep(kVelmReject, 100.0, 100e6 + 100.0, rbw, false);
        EXPECT_LT(ImageLevel(t, 30.0e6), ImageLevel(plain, 30.0e6) - drop);
    }
}

TEST_F(FastSweep, PartialSweepsGrowStepByStep) {
    constexpr int kBinsPerStep = 105;  // at 6.5 kHz
    const int device = devices_.at(kVelmDelivery);
    ASSERT_EQ(qorNoError, Initiate(device, Between(100e6, 200e6, 6500.0)));
    int length = 0;
    double startFreq = 0.0, binSize = 0.0;
    ASSERT_EQ(qorNoError, qorQuerySweepInfo(device, &length, &startFreq, &binSize));
    ASSERT_EQ(length, 52500);
    std::vector<float> min(length), max(length);

    // First sweep: each call reports what is new since the last one, on the
    // step grid; beyond it the trace is not measured yet.
    int delivered = 0, calls = 0, gridStop = -1;
    while (delivered < length) {
        int start = -1, stop = -1;
        ASSERT_EQ(qorNoError, qorGetPartialSweep_32f(device, min.data(), max.data(), &start, &stop));
        ASSERT_LT(++calls, 1000);
        if (stop == delivered) continue;  // woken with nothing new
        EXPECT_EQ(start, delivered);
        ASSERT_GT(stop, delivered);
        ASSERT_LE(stop, length);
        if (stop < length) {
            if (gridStop < 0) gridStop = stop;
            EXPECT_EQ((stop - gridStop) % kBinsPerStep, 0) << stop;
        }
        EXPECT_GT(max[stop - 1], -200.0f);
        for (int i = stop; i < length; ++i) ASSERT_EQ(max[i], -200.0f) << i;
        delivered = stop;
    }

    // The next calls ask for a new sweep: its first news start again from
    // bin 0, and beyond them the trace still holds the last sweep. (The wide
    // form reports an old position with nothing new.)
    int start = -1, stop = -1;
    EXPECT_EQ(qorNullPtrErr, qorGetPartialSweep_64f(device, nullptr, nullptr, &start, &stop));
    std::vector<double> min64(length), max64(length);
    for (int call = 0; call < 10 && start == stop; ++call) {
        ASSERT_EQ(qorNoError, qorGetPartialSweep_64f(device, min64.data(), max64.data(), &start, &stop));
    }
    EXPECT_EQ(start, 0);
    for (int i = stop; i < length; ++i) ASSERT_GT(max64[i], -200.0) << i;
    EXPECT_EQ(qorNoError, qorGetSweep_64f(device, min64.data(), max64.data()));
    qorAbort(device);
}

// One window a segment of 107 steps, tiling the steps; on the 12.4 GHz B unit
// above LO index 20000 each window comes with the clock trim of its segment.
TEST_F(FastSweep, HopWindowsAndClockTrim) {
    TheSim()->clearCommandLog(kOrskDelivery);
    Sweep(kOrskDelivery, 7000e6, 7100e6, 6500.0, false);
    std::vector<Payload> windows;
    int trim = -1;
    for (const auto& c : Commands(kOrskDelivery)) {
        if (c[0] == 'Z' && c.size() == 3 && c[1] == '3') trim = c[2];
        if (c[0] != 'N' || c.size() != 5) continue;
        const int first = c[1] | c[2] << 8;
        EXPECT_EQ(trim, (first / 107) % 2 == 0 ? 3 : 0) << first;
        windows.push_back(c);
    }
    // 100 MHz in 5 segments of 21.4 MHz. A caller that comes late may have
    // asked for a second sweep that the abort cut short.
    ASSERT_GE(windows.size(), 5u);
    int next = static_cast<int>((7000e6 + 10.76e6) / 200000.0);
    for (size_t k = 0; k < 5; ++k) {
        const int first = windows[k][1] | windows[k][2] << 8, last = windows[k][3] | windows[k][4] << 8;
        EXPECT_EQ(first, next);
        EXPECT_LE(last - first + 1, 107);
        next = last + 1;
    }
    EXPECT_EQ(trim, 0) << "leaving the mode returns the trim to 0";
}

}  // namespace
