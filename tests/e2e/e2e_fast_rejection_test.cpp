// Image rejection of the hopped sweep: a tone shows a second time 21.4 MHz
// below itself, seen from the LO above it on the other side; with rejection
// on the partner view 107 steps lower removes that response while the tone
// keeps its level.
#include "e2e_fast_fixture.h"

namespace {

using namespace fastsweep;

constexpr unsigned kVelmB = 50000002, kOrskB = 50000004;

const std::vector<Tone> kVelmTones = {{3.1e6, -30},      {10.05e6, -35},   {40.0e6, -40},
                                      {30.0e6, -35},     {530.037e6, -30}, {571.1e6, -35}};
const std::vector<Tone> kOrskTones = {{3.1e6, -30}, {10.05e6, -35}, {7030.037e6, -30}, {9071.1e6, -35}};

class FastSweepRejection : public FastSweepPairSuite {
protected:
    static void SetUpTestSuite() { OpenPair(kVelmB, kVelmTones, kOrskB, kOrskTones); }
};

// The strongest reading where a tone's image lands: 21.4 MHz below it, moved
// by up to twice the offset of the tone within its step.
double ImageLevel(const Trace& t, double toneFrequency) { return t.LevelNear(toneFrequency - 21.4e6, 220e3); }

TEST_F(FastSweepRejection, ImagesVanishAndTonesStay) {
    struct Case {
        int device;
        double start;
        std::vector<Tone> tones;
    };
    for (const double rbw : {6500.0, 30000.0, 250000.0}) {
        for (const Case& c : {Case{velm, 500e6, kVelmTones}, Case{orsk, 7000e6, kOrskTones}}) {
            SCOPED_TRACE(testing::Message() << "rbw " << rbw << " start " << c.start);
            const Trace plain = Sweep(c.device, c.start, c.start + 100e6, rbw, false);
            const Trace rejected = Sweep(c.device, c.start, c.start + 100e6, rbw, true);
            const double tolerance = rbw > 210000.0 ? 0.55 : 0.5;  // one bin a step: see the accuracy tests
            ExpectTones(rejected, c.tones, tolerance);
            const Tone& tone = c.tones[c.tones.size() - 2];  // the one with its image in the span
            const double image = ImageLevel(plain, tone.frequency);
            EXPECT_GT(image, tone.level - 3.0) << "the image shows without rejection";
            EXPECT_LT(ImageLevel(rejected, tone.frequency), image - 40.0);
        }
    }
}

// Below 16.1 MHz no LO lies 21.4 MHz under a signal: a low-band pass ahead of
// each sweep (a window from LO index 133 down) stands in for the partner, and
// the first segment begins at index 27.
TEST_F(FastSweepRejection, LowBandPassAheadOfEachSweep) {
    const Sim* sim = TheSim();
    sim->clearCommandLog(kVelmB);
    // Without an FFT the substitute spectra are not used: the tones keep their level.
    const Trace t = Sweep(velm, 1e6, 101e6, 250000.0, true);
    ExpectTones(t, {kVelmTones[0], kVelmTones[1], kVelmTones[2]}, 0.55);
    ASSERT_EQ(qorNoError, qorAbort(velm));

    std::vector<std::pair<int, int>> windows;
    for (const auto& c : Commands(kVelmB)) {
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
TEST_F(FastSweepRejection, LowBandPassFromNearZero) {
    struct Case {
        double rbw;
        double drop;  // dB at least
    };
    for (const Case& c : {Case{6500.0, 40.0}, Case{30000.0, 40.0}, Case{100000.0, 13.0}}) {
        SCOPED_TRACE(testing::Message() << "rbw " << c.rbw);
        const Trace t = Sweep(velm, 100.0, 100e6 + 100.0, c.rbw, true);
        EXPECT_NEAR(t.startFreq, 100.0, t.binSize);
        ExpectTones(t, {kVelmTones[0], kVelmTones[1], kVelmTones[2], kVelmTones[3]});
        // The 30 MHz tone's image at 8.6 MHz is gone.
        const Trace plain = Sweep(velm, 100.0, 100e6 + 100.0, c.rbw, false);
        EXPECT_LT(ImageLevel(t, 30.0e6), ImageLevel(plain, 30.0e6) - c.drop);
    }
}

}  // namespace
