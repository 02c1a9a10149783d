// The frames of the real-time mode from known spectra.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine_realtime_image.h"
#include "frame_imaging.h"

namespace {

constexpr double kRate = 486111.1111111111;

TEST(RealTimeGeometry, SpanFftAndFrameRate) {
    struct Case {
        int fftSize;
        double overlap;
        int frameRate;
        double span;
        int hop, spectraPerFrame, spanBins, frameWidth, binsPerColumn;
    };
    const Case cases[] = {
        {16384, 0.125, 30, 250000.0, 2048, 8, 8432, 527, 16},  // 8425 rounded by halving
        {256, 0.125, 4, 250000.0, 32, 3798, 131, 131, 1},
        {256, 10.0, 30, 1000.0, 2560, 7, 0, 0, 1},             // no bin in the span
        {2048, 1.0, 10, 250000.0, 2048, 24, 1054, 527, 2},     // 1053 bins, odd: made even to halve
        {4096, 0.5, 20, 100000.0, 2048, 12, 842, 842, 1},
    };
    for (const Case& c : cases) {
        const qor::RealTimeGeometry g = qor::RealTimeGeometryFor(c.fftSize, c.overlap, c.frameRate, c.span);
        const qor::FrameGeometry f = qor::FrameGeometryFor(g.spanBins);
        SCOPED_TRACE(c.fftSize);
        EXPECT_EQ((std::vector<int>{g.hop, g.spectraPerFrame, g.spanBins, f.frameWidth, f.binsPerColumn}),
                  (std::vector<int>{c.hop, c.spectraPerFrame, c.spanBins, c.frameWidth, c.binsPerColumn}));
        EXPECT_DOUBLE_EQ(g.poi, (c.fftSize + c.hop) / kRate);
        EXPECT_EQ(g.firstBin, (c.fftSize - c.spanBins) / 2);
    }
}

// An imager fed by hand: `bins` span bins, corrections 0 dB, rows of 100 dB
// below -20 dBm (or linear up to it).
struct Imager {
    explicit Imager(int bins, int spectra, int detector = 0, bool logScale = true)
        : corrections(bins, 0.0f), ratios(bins, 1.0f),
          imager(bins, spectra, Scale(detector, logScale), corrections.data(), ratios.data()) {}
    static qor::FrameScale Scale(int detector, bool logScale) {
        qor::FrameScale s;
        s.refLevel = -20.0;
        s.frameScale = 100.0;
        s.detector = detector;
        s.logScale = logScale;
        return s;
    }
    // One frame of `spectra` spectra whose bins hold the levels of `dbm(spectrum, bin)`.
    template <typename Level>
    void Frame(int spectra, Level dbm) {
        const int bins = static_cast<int>(corrections.size());
        std::vector<float> power(static_cast<std::size_t>(bins));
        for (int s = 0; s < spectra; ++s) {
            for (int b = 0; b < bins; ++b) power[b] = static_cast<float>(std::pow(10.0, dbm(s, b) / 10.0));
            EXPECT_EQ(imager.AddSpectrum(power.data()), s == spectra - 1);
        }
    }
    void Take(int width) {
        sweep.assign(corrections.size(), 0.0f);
        frame.assign(static_cast<std::size_t>(width) * qor::kFrameHeight, -1.0f);
        alpha = frame;
        ASSERT_EQ(imager.Deliver(sweep.data(), frame.data(), alpha.data()), qor::FrameHandoff::Read::Held);
    }
    float At(const std::vector<float>& image, int width, int row, int column) const {
        return image[static_cast<std::size_t>(row) * width + column];
    }

    std::vector<float> corrections, ratios;
    qor::FrameImager imager;
    std::vector<float> sweep, frame, alpha;
};

// Rows cover 100 dB up to the reference level: -70 dBm is row 128, the
// reference level row 256 clamped to 255, anything below -120 row 0; after
// 39 frames a cell hit every time holds 39 / 40, with 2 bins to a column too.
TEST(FrameImaging, RowsAndTheCeilingOfTheDensity) {
    constexpr int kBins = 1500;  // 2 bins a column
    constexpr int kSpectra = 4;
    Imager m(kBins, kSpectra);
    const int width = m.imager.Geometry().frameWidth;
    ASSERT_EQ(width, 750);
    ASSERT_EQ(m.imager.Geometry().binsPerColumn, 2);
    auto level = [](int, int b) { return b < 8 ? -70.0 : b < 16 ? -20.0 : b < 24 ? -150.0 : -95.0; };
    for (int f = 0; f < 45; ++f) {
        m.Frame(kSpectra, level);
        m.Take(width);
    }
    EXPECT_FLOAT_EQ(m.At(m.frame, width, 128, 0), 0.975f);
    EXPECT_FLOAT_EQ(m.At(m.frame, width, 255, 5), 0.975f);
    EXPECT_FLOAT_EQ(m.At(m.frame, width, 0, 9), 0.975f);
    EXPECT_FLOAT_EQ(m.At(m.frame, width, 64, 100), 0.975f);
    EXPECT_NEAR(m.sweep[3], -70.0, 0.01);
    EXPECT_NEAR(m.sweep[100], -95.0, 0.01);
}

// On the linear scale the reference level's voltage is row 255: 0.4 of it
// (-7.96 dB) row 102.
TEST(FrameImaging, LinearRowsCountMillivolts) {
    Imager m(8, 1, 0, false);
    m.Frame(1, [](int, int b) { return b == 1 ? -20.0 + 20.0 * std::log10(0.4) : -20.0; });
    m.Take(8);
    EXPECT_FLOAT_EQ(m.At(m.frame, 8, 255, 0), 1.0f / 40);
    EXPECT_FLOAT_EQ(m.At(m.frame, 8, 102, 1), 1.0f / 40);
}

// A tone seen in frames 0 to 9 and gone after: its cell's alpha is 1 while
// it is hit, then falls by 0.9003312 a frame, and is 0 once the frame that
// last hit it leaves the 39-frame sum; its density falls by 1/40 a frame the same way.
TEST(FrameImaging, AlphaFadesAndTheDensityForgets) {
    constexpr int kBins = 64, kSpectra = 3, kToneBin = 20, kRow = 192;  // -45 dBm
    Imager m(kBins, kSpectra);
    const float decay = static_cast<float>(std::pow(0.015, 0.025));
    float expected = 1.0f;
    for (int f = 0; f < 60; ++f) {
        const bool on = f < 10;
        m.Frame(kSpectra, [on](int, int b) { return on && b == kToneBin ? -45.0 : -130.0; });
        m.Take(kBins);
        const float alpha = m.At(m.alpha, kBins, kRow, kToneBin);
        const float density = m.At(m.frame, kBins, kRow, kToneBin);
        if (on) {
            EXPECT_EQ(alpha, 1.0f) << f;
            EXPECT_FLOAT_EQ(density, (f + 1) / 40.0f) << f;
        } else if (f < 10 + 38) {
            expected *= decay;
            EXPECT_NEAR(alpha, expected, 1e-6) << f;
            const int framesHit = std::min(f, 9) - std::max(0, f - 38) + 1;
            EXPECT_FLOAT_EQ(density, framesHit / 40.0f) << f;
        } else {
            EXPECT_EQ(alpha, 0.0f) << f;
            EXPECT_EQ(density, 0.0f) << f;
        }
        EXPECT_EQ(m.At(m.alpha, kBins, 0, 5), 1.0f);  // the floor is hit every frame
    }
}

// The detector chooses the sweep only: the images of a changing scene are the same.
TEST(FrameImaging, TheDetectorLeavesTheImagesAlone) {
    constexpr int kBins = 100, kSpectra = 5;
    Imager peak(kBins, kSpectra, 0), mean(kBins, kSpectra, 1);
    auto level = [](int s, int b) { return -60.0 - 7.0 * ((s * 13 + b * 7) % 5); };
    for (int f = 0; f < 3; ++f) {
        peak.Frame(kSpectra, level);
        mean.Frame(kSpectra, level);
        peak.Take(kBins);
        mean.Take(kBins);
        EXPECT_EQ(peak.frame, mean.frame);
        EXPECT_EQ(peak.alpha, mean.alpha);
    }
    // Bin 0 over its five spectra: -60, -67, -74, -81, -88 dBm in some order.
    EXPECT_NEAR(peak.sweep[0], -60.0, 0.01);
    const double meanMw = (1e-6 + std::pow(10.0, -6.7) + std::pow(10.0, -7.4) + std::pow(10.0, -8.1) + std::pow(10.0, -8.8)) / 5;
    EXPECT_NEAR(mean.sweep[0], 10.0 * std::log10(meanMw), 0.01);
}

}  // namespace
