// Hopped sweeps through the C API on the virtual instrument: tones over the
// whole range of both families, and combs of tones at every offset within a
// step, found within one bin and at their level at every RBW and shape.
#include <tuple>

#include "e2e_fast_fixture.h"

namespace {

using namespace fastsweep;

constexpr unsigned kVelmB = 30000002, kOrskB = 30000004;
constexpr double kVelmComb = 1003e6, kOrskComb = 5703e6;

// Tones over the whole range, none within 1 MHz of another's image 21.4 MHz
// below it nor of the first mixer's spurs; and a comb of 45 tones 2.038 MHz
// apart from the edge of a step, which puts them 38 kHz further on within
// their steps each time and their images between them.
std::vector<Tone> Scene(std::vector<Tone> spread, double comb) {
    for (int i = 0; i < 45; ++i) spread.push_back({comb + i * 2.038e6, -30.0 - (i % 3) * 5});
    return spread;
}
const std::vector<Tone> kVelmTones = Scene({{5.3e6, -30}, {47.137e6, -40}, {151.3e6, -35}, {700.04e6, -30},
                                            {1400.1e6, -45}, {2200.173e6, -30}, {2999.961e6, -35},
                                            {3700.02e6, -40}, {4390.0e6, -30}},
                                           kVelmComb);
const std::vector<Tone> kOrskTones = Scene({{5.3e6, -30}, {120.1e6, -40}, {1500.137e6, -35}, {3900.2e6, -30},
                                            {4500.061e6, -45}, {6000.3e6, -30}, {6800.1e6, -35}, {8300.05e6, -40},
                                            {9200.1e6, -30}, {10000.3e6, -35}, {11500.07e6, -30},
                                            {12390.0e6, -40}},
                                           kOrskComb);

class FastSweepAccuracy : public FastSweepPairSuite {
protected:
    static void SetUpTestSuite() { OpenPair(kVelmB, kVelmTones, kOrskB, kOrskTones); }
};

// Under the sanitizers a step costs many times more: there the full range is
// swept with one bin a step.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double kFullRangeRbw = 250000.0, kFullRangeTolerance = 0.55;
#else
constexpr double kFullRangeRbw = 100000.0, kFullRangeTolerance = 0.5;
#endif

TEST_F(FastSweepAccuracy, FullRangeOfEachFamily) {
    ExpectTones(Sweep(velm, 1e6, 4.4e9, kFullRangeRbw, false), kVelmTones, kFullRangeTolerance);
    ExpectTones(Sweep(orsk, 1e6, 12.4e9, kFullRangeRbw, false), kOrskTones, kFullRangeTolerance);
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
TEST_F(FastSweepAccuracy, CombAtEveryRbwAndShape) {
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
        for (const auto& [device, comb, tones] : {std::make_tuple(velm, kVelmComb, &kVelmTones),
                                                  std::make_tuple(orsk, kOrskComb, &kOrskTones)}) {
            SCOPED_TRACE(testing::Message() << "rbw " << c.rbw << " shape " << c.shape << " reject " << c.reject
                                            << " comb " << comb);
            ExpectTones(Sweep(device, comb - 3e6, comb + 97e6, c.rbw, c.reject, c.shape), *tones, c.tolerance);
        }
    }
}

}  // namespace
