// The spectrum chain on synthetic blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "rbw_filter.h"
#include "spectrum_core.h"

namespace {

using qor::kSampleRate;
using qor::RbwFilter;
using qor::SpectrumCore;

constexpr double kWindowDb = 3.0103;  // the window's 1 + j

using Block = std::vector<Ipp64fc>;

// Adds a tone of `amplitude` at `bins` x sampleRate / n to samples [from, to).
void AddTone(Block& block, double amplitude, double bins, int n, int from = 0, int to = -1) {
    const std::size_t end = to < 0 ? block.size() : static_cast<std::size_t>(to);
    for (std::size_t i = static_cast<std::size_t>(from); i < end; ++i) {
        const double t = 2.0 * M_PI * bins * static_cast<double>(i) / n;
        block[i].re += amplitude * std::cos(t);
        block[i].im += amplitude * std::sin(t);
    }
}

Block Noise(int length, double rms, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> gauss(0.0, rms / std::sqrt(2.0));
    Block block(static_cast<std::size_t>(length));
    for (auto& x : block) x = {gauss(random), gauss(random)};
    return block;
}

int Samples(int n, int ratio) { return (n * ratio + 767) / 512 * 512; }

struct Spectra { std::vector<double> min, max; };

// The spectra of `block`, with a windowed tone to mix it with when one is given.
Spectra Measure(SpectrumCore& core, Block block, bool conjugate = false, const Ipp64fc* tone = nullptr) {
    const std::size_t n = static_cast<std::size_t>(core.filter->fftSize);
    Spectra s{std::vector<double>(n), std::vector<double>(n)};
    core.Process(block.data(), s.min.data(), s.max.data(), conjugate, tone);
    return s;
}

int PeakBin(const Spectra& s) { return static_cast<int>(std::max_element(s.max.begin(), s.max.end()) - s.max.begin()); }

TEST(SpectrumCore, FrameGeometry) {
    struct Case {
        double rbw;
        int shape, detector, ratio;
        bool skip;
        int sampleCount, hop, frameCount, videoFrames, averageCount;
    };
    const Case cases[] = {
        {3000.0, 1, 0, 1, false, 1536, 128, 5, 1, 5},   // N 1024
        {3000.0, 1, 0, 3, false, 3584, 128, 21, 17, 5},
        {3000.0, 1, 1, 3, false, 3584, 128, 21, 21, 1},  // the average detector takes the whole block
        {10000.0, 1, 0, 1, true, 256, 32, 1, 1, 1},     // N 256, the fast sweep's block
        {10000.0, 1, 0, 40, false, 10752, 32, 329, 313, 17},
        {30000.0, 2, 0, 1, false, 512, 5, 77, 1, 77},    // Gaussian: the hop follows the window, not N
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "rbw " << c.rbw << " ratio " << c.ratio);
        RbwFilter filter(c.rbw, c.shape, kSampleRate, 0, false);
        SpectrumCore core(&filter, c.detector, c.ratio, Samples(filter.fftSize, c.ratio), c.skip);
        EXPECT_EQ((std::vector<int>{core.sampleCount, core.hop, core.frameCount, core.videoFrames, core.averageCount,
                                    static_cast<int>(core.frames.size()), static_cast<int>(core.sums.size())}),
                  (std::vector<int>{c.sampleCount, c.hop, c.frameCount, c.videoFrames, c.averageCount, c.frameCount,
                                    c.averageCount}));
    }
}

// A tone on a bin keeps its amplitude in every shape, unit and detector,
// and lands at N/2 plus its offset in bins (mirrored when conjugated).
TEST(SpectrumCore, ToneLandsOnItsBinAtItsLevel) {
    const double amplitude = 0.05, expected = 20.0 * std::log10(amplitude) + kWindowDb;
    for (int variant = 0; variant < 32; ++variant) {
        const int shape = 1 + variant % 2, units = variant / 2 % 4, detector = variant / 8 % 2;
        const bool conjugate = variant >= 16;
        SCOPED_TRACE(testing::Message() << "shape " << shape << " units " << units << " detector " << detector
                                        << " conjugate " << conjugate);
        RbwFilter filter(3000.0, shape, kSampleRate, units, false);
        const int n = filter.fftSize;
        SpectrumCore core(&filter, detector, 2.0, Samples(n, 2), false);
        Block block = Noise(core.sampleCount, 1e-6, 7);
        AddTone(block, amplitude, 37, n);
        const Spectra s = Measure(core, block, conjugate);
        const int bin = conjugate ? n / 2 - 37 : n / 2 + 37;
        EXPECT_NEAR(PeakBin(s), bin, 4);  // the flat top is flat over its cutoff of about 4 bins each side
        EXPECT_NEAR(s.max[bin], expected, 0.01);
        EXPECT_NEAR(s.min[bin], expected, 0.01);
    }
}

// The moving sums against a plain computation from the single frames, in
// every video unit; a ratio of 1 takes the extremes of single frames, the
// average detector one average of all frames, over kept bins across the
// middle, of a spectrum of 256 bins and of one small enough to be worked
// out whole. (The detectors and units on noise are measured end to end.)
TEST(SpectrumCore, MovingAverageMatchesPlainSums) {
    struct Size { double rbw; int n, keepFrom, keepCount, step; };
    for (const Size& size : {Size{10000.0, 256, 60, 130, 17}, Size{200000.0, 8, 2, 5, 1}}) {
        const int n = size.n;
        for (int units = 0; units < 3; ++units) {
            for (int detector : {0, 1}) {
                for (int ratio : {1, 3, 40}) {  // 40: most frames lie in every average
                    SCOPED_TRACE(testing::Message() << "n " << n << " units " << units << " detector " << detector
                                                    << " ratio " << ratio);
                    RbwFilter filter(size.rbw, 1, kSampleRate, units, false);
                    ASSERT_EQ(filter.fftSize, n);
                    SpectrumCore core(&filter, detector, ratio, Samples(n, ratio), false);
                    core.KeepBins(size.keepFrom, size.keepCount);
                    const Block block = Noise(core.sampleCount, 0.01, 5);
                    const Spectra s = Measure(core, block);

                    std::vector<std::vector<double>> frames(static_cast<std::size_t>(core.frameCount),
                                                            std::vector<double>(n));
                    for (int f = 0; f < core.frameCount; ++f) {
                        SpectrumCore::FrameSpectrum(&filter, &block[f * core.hop], frames[f].data());
                    }
                    const auto toDb = [units](double v) {
                        return units == 0 ? v : units == 1 ? 20.0 * std::log10(v) : 10.0 * std::log10(v);
                    };
                    for (int i = core.keepFrom; i < core.keepFrom + core.keepCount; i += size.step) {
                        double lowest = INFINITY, highest = -INFINITY;
                        for (int k = 0; k < core.averageCount; ++k) {
                            double sum = 0.0;
                            for (int f = k; f < k + core.videoFrames; ++f) sum += frames[f][i];
                            lowest = std::min(lowest, sum / core.videoFrames);
                            highest = std::max(highest, sum / core.videoFrames);
                        }
                        EXPECT_NEAR(s.min[i], toDb(lowest), 1e-9) << i;
                        EXPECT_NEAR(s.max[i], toDb(highest), 1e-9) << i;
                    }
                }
            }
        }
    }
}

// No video processing: one frame, the first N samples after the skip.
TEST(SpectrumCore, SampleUnitsTakeTheFirstFrameOnly) {
    RbwFilter filter(10000.0, 1, kSampleRate, 3, false);
    SpectrumCore core(&filter, 0, 4.0, Samples(256, 4), true);
    Block block = Noise(Samples(256, 4), 1e-5, 9);
    AddTone(block, 0.5, 10, 256, 0, 256);     // in the skipped lead: lost
    AddTone(block, 0.01, -20, 256, 256, 512);  // the first frame: measured
    AddTone(block, 0.5, 30, 256, 512);         // after it: lost
    const Spectra s = Measure(core, block);
    EXPECT_NEAR(PeakBin(s), 128 - 20, 4);
    EXPECT_NEAR(s.max[108], -40.0 + kWindowDb, 0.01);
    EXPECT_EQ(s.min, s.max);
}

// A windowed tone handed to Process mixes the samples before the
// conjugation: the same spectra as samples mixed and conjugated beforehand,
// whether one frame or many are transformed (each frame takes the tone from
// its own start: the same powers).
TEST(SpectrumCore, ToneMixesBeforeTheConjugation) {
    for (double rbw : {100.0, 10000.0}) {
        for (bool conjugate : {false, true}) {
            SCOPED_TRACE(testing::Message() << "rbw " << rbw << " conjugate " << conjugate);
            RbwFilter filter(rbw, 1, kSampleRate, 0, false);
            SpectrumCore core(&filter, 0, 1.0, Samples(filter.fftSize, 1), false);
            Block block = Noise(core.sampleCount, 0.01, 3);
            AddTone(block, 0.2, 7.3, filter.fftSize);
            Block tone(block.size(), Ipp64fc{0.0, 0.0});
            AddTone(tone, 1.0, -2.6, filter.fftSize);
            Block mixed = block;
            for (std::size_t i = 0; i < mixed.size(); ++i) {
                const Ipp64fc x = block[i], t = tone[i];
                mixed[i] = {x.re * t.re - x.im * t.im, x.re * t.im + x.im * t.re};
                if (conjugate) mixed[i].im = -mixed[i].im;
            }
            const Spectra expected = Measure(core, mixed);
            Block windowed(tone.begin(), tone.begin() + filter.fftSize);
            core.WindowTone(windowed.data(), conjugate);
            const Spectra s = Measure(core, block, conjugate, windowed.data());
            for (std::size_t i = 0; i < s.min.size(); i += 7) {
                EXPECT_NEAR(s.min[i], expected.min[i], 1e-9) << i;
                EXPECT_NEAR(s.max[i], expected.max[i], 1e-9) << i;
            }
        }
    }
}

// Above 210 kHz there is no FFT: the power of 256 samples plus 2.5 dB.
TEST(SpectrumCore, DirectPowerPath) {
    RbwFilter filter(300000.0, 1, kSampleRate, 0, false);
    for (bool skip : {false, true}) {
        SpectrumCore core(&filter, 0, 1.0, 512, skip);
        EXPECT_EQ(core.hop, 0);
        Block block(512, Ipp64fc{0.0, 0.0});
        AddTone(block, 0.1, 3, 256, skip ? 256 : 0);
        double min = 0.0, max = 0.0;
        core.Process(block.data(), &min, &max, false);
        EXPECT_NEAR(min, -20.0 + 2.5, 1e-9);
        EXPECT_EQ(min, max);
    }
}

}  // namespace
