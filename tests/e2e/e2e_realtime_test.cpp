// The real-time mode through the C API on the virtual instrument: a tone's
// level and frequency in the frame sweep on both families over the RBWs and
// spans of the mode, a burst's density in the persistence image, the fade of
// the alpha image after a hopping carrier leaves, and the frame rate in real
// time.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "e2e_bench.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kRate = 486111.1111111111;
constexpr unsigned kVelm = 43000002;
constexpr unsigned kOrsk = 43000004;
constexpr unsigned kBurstUnit = 43000012;
constexpr double kBurstHz = 433.92e6;
constexpr double kBurstLevel = -40.0;

struct ToneCase {
    unsigned serial;
    double center;
    double rbw;
    double span;
    int binsOff;  // the tone lies this many bins from the centre, on a bin
    double level;
    int detector;
    double overlap;
};

int FftSizeOf(double rbw) { return 1 << static_cast<int>(std::ceil(std::log2(kRate / (rbw / 3.2)))); }

double ToneOf(const ToneCase& c) { return c.center + c.binsOff * kRate / FftSizeOf(c.rbw); }

std::vector<ToneCase> ToneCases() {
    return {
        {kVelm, 100e6, 100.0, 1e3, 7, -30.0, 0, 0.125},     {kVelm, 300e6, 300.0, 20e3, -40, -40.0, 1, 0.5},
        {kVelm, 1e9, 1e3, 100e3, 150, -30.0, 1, 1.0},       {kVelm, 2.4e9, 3e3, 250e3, -100, -25.0, 0, 0.25},
        {kVelm, 30e6, 10e3, 250e3, 40, -35.0, 1, 2.0},      {kVelm, 5e6, 500.0, 50e3, 90, -30.0, 0, 0.125},
        {kOrsk, 1e9, 100.0, 5e3, -60, -30.0, 1, 0.5},       {kOrsk, 5e9, 1e3, 250e3, 300, -30.0, 0, 0.125},
        {kOrsk, 7e9, 3e3, 50e3, -20, -35.0, 1, 1.0},        {kOrsk, 11e9, 10e3, 200e3, 30, -30.0, 0, 0.5},
        {kOrsk, 9e9, 200.0, 100e3, 600, -40.0, 0, 0.25},   {kOrsk, 500e6, 2e3, 10e3, 5, -30.0, 1, 10.0},
    };
}

// The tones of the cases, and a unit with a burst on for 10% of the time.
const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = [] {
        std::vector<e2e::BenchUnit> all = {{kVelm, 2, {}}, {kOrsk, 4, {}}, {kBurstUnit, 2, {}}};
        for (const ToneCase& c : ToneCases()) all[c.serial == kVelm ? 0 : 1].tones.push_back({ToneOf(c), c.level});
        simbench::Signal& burst = all[2].signals.emplace_back(simbench::Cw(kBurstHz, kBurstLevel));
        burst.kind = "burst";
        burst.period = 0.05;
        burst.duration = 0.005;
        return all;
    }();
    return units;
}

struct Frames {
    qorStatus initiate = qorUnknownErr;
    int length = 0, width = 0, height = 0;
    double startFreq = 0.0, binSize = 0.0;
    std::vector<float> sweep, frame, alpha;

    // Takes the next frame; its status.
    qorStatus Next(int device) { return qorGetRealTimeFrame(device, sweep.data(), frame.data(), alpha.data()); }
    float Cell(const std::vector<float>& image, int row, int column) const {
        return image[static_cast<std::size_t>(row) * width + column];
    }
    int ColumnOf(double frequency) const {
        const int bin = static_cast<int>(std::lround((frequency - startFreq) / binSize));
        return bin / (length / std::max(width, 1));
    }
};

Frames Start(int device, double center, double span, double rbw, double refLevel, int detector = 0,
             double overlap = 0.125, int frameRate = 30) {
    qorConfigCenterSpan(device, center, span);
    qorConfigSweepCoupling(device, rbw, rbw, false);
    qorConfigLevel(device, refLevel);
    qorConfigAcquisition(device, detector, 0);
    qorConfigRealTime(device, 100.0, frameRate);
    qorConfigRealTimeOverlap(device, overlap);
    Frames f;
    f.initiate = qorInitiate(device, ModeRealTime);
    if (f.initiate < 0) return f;
    qorQuerySweepInfo(device, &f.length, &f.startFreq, &f.binSize);
    qorQueryRealTimeFrameInfo(device, &f.width, &f.height);
    f.sweep.assign(static_cast<std::size_t>(f.length), 0.0f);
    f.frame.assign(static_cast<std::size_t>(f.width) * f.height, 0.0f);
    f.alpha = f.frame;
    return f;
}

using RealTime = e2e::SceneSuite<Scene>;

// The frame sweep's strongest bin near the tone is the tone's bin and reads
// its level; the detector and overlap vary from case to case.
TEST_F(RealTime, ToneLevelAndFrequencyInTheFrameSweep) {
    const std::vector<ToneCase> cases = ToneCases();
    // The instrumented builds check the threads, not the arithmetic: a few cases of each family.
    const std::size_t step = e2e::kAnySanitizer ? 4 : 1;
    for (std::size_t k = 0; k < cases.size(); k += step) {
        const ToneCase& c = cases[k];
        const double tone = ToneOf(c);
        SCOPED_TRACE(testing::Message() << c.serial << " at " << tone << " Hz, RBW " << c.rbw << ", span " << c.span);
        const int device = devices_.at(c.serial);
        Frames f = Start(device, c.center, c.span, c.rbw, -20.0, c.detector, c.overlap);
        ASSERT_EQ(f.initiate, qorNoError);
        ASSERT_GT(f.length, 0);
        const int fftSize = FftSizeOf(c.rbw);
        EXPECT_DOUBLE_EQ(f.binSize, kRate / fftSize);
        double poi = 0.0;
        ASSERT_EQ(qorQueryRealTimePoi(device, &poi), qorNoError);
        EXPECT_DOUBLE_EQ(poi, (fftSize + static_cast<int>(fftSize * c.overlap)) / kRate);
        for (int k = 0; k < 3; ++k) ASSERT_EQ(f.Next(device), qorNoError);
        std::vector<double> sweep(f.sweep.begin(), f.sweep.end());
        const int peak = e2e::PeakNear(sweep, f.startFreq, f.binSize, tone, 3 * f.binSize);
        ASSERT_GE(peak, 0);
        EXPECT_NEAR(f.startFreq + peak * f.binSize, tone, 0.5 * f.binSize);
        EXPECT_NEAR(sweep[peak], c.level, 0.3);
        qorAbort(device);
    }
}

// The span's bins and the image's columns as the queries give them: none
// in a span narrower than a bin, 8425 bins rounded to 8432 in 527 columns;
// the sweep of this mode comes only with a frame.
TEST_F(RealTime, SpanBinsAndFrameWidth) {
    struct Case {
        double span, rbw;
        int length, width;
    };
    const int device = devices_.at(kVelm);
    for (const Case& c : {Case{1e3, 10e3, 0, 0}, Case{250e3, 100.0, 8432, 527}, Case{250e3, 10e3, 131, 131}}) {
        Frames f = Start(device, 1e9, c.span, c.rbw, -20.0);
        ASSERT_EQ(f.initiate, qorNoError);
        EXPECT_EQ(f.length, c.length) << c.span << " at " << c.rbw;
        EXPECT_EQ(f.width, c.width) << c.span << " at " << c.rbw;
        EXPECT_EQ(f.height, 256);
        // No output asked for: the frame is taken all the same.
        EXPECT_EQ(qorGetRealTimeFrame(device, nullptr, nullptr, nullptr), qorNoError);
        std::vector<float> min(static_cast<std::size_t>(c.length) + 1), max = min;
        EXPECT_EQ(qorGetSweep_32f(device, min.data(), max.data()), qorWrongModeErr);
        qorAbort(device);
    }
}

// A burst on for 5 ms of every 50: over the 39 frames of the sum, its
// column holds 10% of the entries at its level (less the windows that
// straddle its edges), and every column holds 0.975 of them in all.
TEST_F(RealTime, BurstDensityInThePersistenceImage) {
    // 40 frames of spectra take the instrumented engines most of a minute.
    if (e2e::kAnySanitizer) GTEST_SKIP() << "an accuracy test, slow under a sanitizer";
    const int device = devices_.at(kBurstUnit);
    Frames f = Start(device, kBurstHz, 100e3, 3e3, -20.0, 0, 0.25);
    ASSERT_EQ(f.initiate, qorNoError);
    ASSERT_EQ(f.height, 256);
    for (int k = 0; k < 40; ++k) ASSERT_EQ(f.Next(device), qorNoError);
    qorAbort(device);
    const int column = f.ColumnOf(kBurstHz);
    // Rows within 6 dB of the burst's level.
    const int top = static_cast<int>((kBurstLevel + 6.0 + 120.0) * 2.56);
    const int bottom = static_cast<int>((kBurstLevel - 6.0 + 120.0) * 2.56);
    double atBurst = 0.0, total = 0.0;
    for (int r = 0; r < f.height; ++r) {
        const float cell = f.Cell(f.frame, r, column);
        total += cell;
        if (r >= bottom && r <= top) atBurst += cell;
    }
    EXPECT_NEAR(total, 0.975, 1e-4);
    EXPECT_GT(atBurst, 0.1 * 0.975 / 1.5);
    EXPECT_LT(atBurst, 0.1 * 0.975 * 1.5);
}

// ---- In real time --------------------------------------------------------------

constexpr unsigned kPacedUnit = 43000032;
const double kHops[] = {250.15e6, 250.2e6, 250.3e6, 250.35e6};
constexpr double kDwell = 0.5;
constexpr double kHopLevel = -40.0;

class RealTimePaced : public e2e::RealClockSuite<RealTimePaced> {
protected:
    static void SetUpTestSuite() {
        if (e2e::kAnySanitizer) return;
        simbench::Signal hop = simbench::Cw(0.0, kHopLevel);
        hop.kind = "hop";
        hop.frequencies.assign(std::begin(kHops), std::end(kHops));
        hop.dwell = kDwell;
        device_ = e2e::OpenRealTimeUnit(kPacedUnit, hop);
    }
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        // The instrumented engines cannot keep the unit's real rate.
        if (e2e::kAnySanitizer) GTEST_SKIP() << "real-time pacing under a sanitizer";
        ASSERT_GE(device_, 0);
    }
};

// Frames come at the configured rate: the samples of spectraPerFrame hops.
TEST_F(RealTimePaced, FramesArriveAtTheFrameRate) {
    for (int rate : {4, 15, 30}) {
        Frames f = Start(device_, 250.25e6, 250e3, 1e3, -20.0, 0, 0.5, rate);
        ASSERT_EQ(f.initiate, qorNoError);
        ASSERT_EQ(f.Next(device_), qorNoError);
        const int frames = rate / 4 + 3;
        const auto from = Clock::now();
        for (int k = 0; k < frames; ++k) ASSERT_EQ(f.Next(device_), qorNoError);
        const double seconds = std::chrono::duration<double>(Clock::now() - from).count();
        EXPECT_NEAR(frames / seconds, rate, 0.05 * rate) << "at " << rate << " frames per second";
        qorAbort(device_);
    }
}

// The carrier stays 0.5 s on each of four channels in turn. Where it left,
// the alpha image reads 1 in the last frame that saw it, then falls by
// 0.9003312 a frame, to 0 when that frame leaves the 39-frame sum.
TEST_F(RealTimePaced, AlphaFadesWhereTheCarrierLeft) {
    Frames f = Start(device_, 250.25e6, 250e3, 1e3, -20.0, 0, 0.5, 30);
    ASSERT_EQ(f.initiate, qorNoError);
    const int fromRow = static_cast<int>((kHopLevel - 10.0 + 120.0) * 2.56);
    // Per channel and frame, the channel column's largest alpha above the noise.
    std::vector<std::vector<float>> strongest(std::size(kHops));
    constexpr int kFrames = 62;  // a change of channel (15 frames at most) and the fade after it
    for (int k = 0; k < kFrames; ++k) {
        ASSERT_EQ(f.Next(device_), qorNoError);
        for (std::size_t h = 0; h < std::size(kHops); ++h) {
            const int column = f.ColumnOf(kHops[h]);
            float best = 0.0f;
            for (int r = fromRow; r < f.height; ++r) best = std::max(best, f.Cell(f.alpha, r, column));
            strongest[h].push_back(best);
        }
    }
    qorAbort(device_);
    // The channel the carrier left first, and the last frame that saw it there.
    std::size_t left = 0;
    int last = kFrames;
    for (std::size_t h = 0; h < strongest.size(); ++h) {
        for (int k = 0; k + 1 < last; ++k) {
            if (strongest[h][k] == 1.0f && strongest[h][k + 1] < 1.0f) {
                left = h;
                last = k;
            }
        }
    }
    ASSERT_LT(last + 39, kFrames) << "the carrier left no channel in time";
    const float decay = static_cast<float>(std::pow(0.015, 0.025));
    float expected = 1.0f;
    for (int k = 1; k <= 38; ++k) {
        expected *= decay;
        EXPECT_NEAR(strongest[left][last + k], expected, 1e-5) << k << " frames after";
    }
    EXPECT_EQ(strongest[left][last + 39], 0.0f);
}

}  // namespace
