// FFT size and window rules of the RBW filters: the sizes are invisible end
// to end (a wrong size only moves the bins a little), so they are pinned here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "rbw_filter.h"

namespace {

using qor::kSampleRate;
using qor::RbwFilter;
using qor::RbwGeometry;
using qor::RbwGeometryFor;
using qor::RbwShapeFlatTop;
using qor::RbwShapeGaussian;

// The limits of the rules below: the direct power path, a size's edge, the cap.
TEST(RbwGeometry, SizesAtTheLimits) {
    struct SizeCase { double rbw; int shape; bool cap; int fftSize, fftOrder, zeroPad; };
    const SizeCase cases[] = {
        {210000.1, RbwShapeFlatTop, false, 1, 0, 0},     // no FFT: direct power
        {210000.1, RbwShapeGaussian, false, 1, 0, 0},
        {210000.0, RbwShapeFlatTop, false, 8, 3, 0},     // the limit itself gets an FFT
        {194444.5, RbwShapeFlatTop, false, 8, 3, 0},
        {194444.4, RbwShapeFlatTop, false, 16, 4, 0},
        {6500.0, RbwShapeFlatTop, true, 256, 8, 0},      // the fast sweep's lowest RBW fits the cap
        {3000.0, RbwShapeFlatTop, false, 1024, 10, 0},
        {0.1, RbwShapeFlatTop, false, 1 << 24, 24, 0},
        {210000.0, RbwShapeGaussian, false, 16, 4, 10},  // L = 6
        {6500.0, RbwShapeGaussian, true, 256, 8, 0},     // capped: the window fills all 256
        {5000.0, RbwShapeGaussian, false, 1024, 10, 767},  // L = 257: one more than half of 512
    };
    for (const SizeCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "rbw " << c.rbw << " shape " << c.shape << " cap " << c.cap);
        const RbwGeometry g = RbwGeometryFor(c.rbw, c.shape, kSampleRate, c.cap);
        EXPECT_EQ(g.fftSize, c.fftSize);
        EXPECT_EQ(g.fftOrder, c.fftOrder);
        EXPECT_EQ(g.zeroPad, c.zeroPad);
    }
    EXPECT_NEAR(RbwGeometryFor(3000.0, RbwShapeFlatTop, kSampleRate, false).cutoffBins, 3.9497142857, 1e-9);
    EXPECT_EQ(RbwGeometryFor(30000.0, RbwShapeGaussian, kSampleRate, false).cutoffBins, 0.0);
}

// The flat top takes the next power of two above 3.2 samples per hertz; the
// Gaussian window its exact length, in at most half the transform.
TEST(RbwGeometry, SizesFollowTheirRulesOverTheWholeRange) {
    for (double rbw = 0.37; rbw < 210000.0; rbw *= 1.29) {
        const RbwGeometry flat = RbwGeometryFor(rbw, RbwShapeFlatTop, kSampleRate, false);
        const double wanted = 3.2 * kSampleRate / rbw;
        EXPECT_GE(flat.fftSize, wanted) << rbw;
        EXPECT_LT(flat.fftSize / 2, wanted) << rbw;
        EXPECT_EQ(flat.fftSize, 1 << flat.fftOrder);
        if (rbw < 1.0) continue;
        const RbwGeometry gauss = RbwGeometryFor(rbw, RbwShapeGaussian, kSampleRate, false);
        const int length = gauss.fftSize - gauss.zeroPad;
        EXPECT_EQ(length, static_cast<int>(std::trunc(kSampleRate * 2.65 / rbw))) << rbw;
        EXPECT_LE(length, gauss.fftSize / 2) << rbw;
        EXPECT_GT(length, gauss.fftSize / 4) << rbw;
    }
}

TEST(RbwFilter, WindowsHaveUnitDcGainAndEqualParts) {
    for (int shape : {RbwShapeFlatTop, RbwShapeGaussian}) {
        for (double rbw : {120000.0, 30000.0, 3000.0, 300.0}) {
            SCOPED_TRACE(testing::Message() << "rbw " << rbw << " shape " << shape);
            RbwFilter filter(rbw, shape, kSampleRate, 0, false);
            const int n = filter.fftSize;
            double sum = 0.0;
            for (int i = 0; i < n; ++i) {
                EXPECT_EQ(filter.complexWindow[i].re, filter.complexWindow[i].im);
                sum += filter.complexWindow[i].re;
            }
            EXPECT_NEAR(sum, n, 1e-9 * n);
            // The zero padding stays zero, the window is symmetric, and only
            // the flat top has negative taps.
            const int length = n - filter.zeroPad;
            double lowest = 0.0;
            for (int i = 0; i < length; ++i) lowest = std::min(lowest, filter.complexWindow[i].re);
            EXPECT_EQ(lowest < 0.0, shape == RbwShapeFlatTop);
            for (int i = length; i < n; ++i) EXPECT_EQ(filter.complexWindow[i].re, 0.0);
            for (int i = 0; i < length / 2; ++i) {
                EXPECT_NEAR(filter.complexWindow[i].re, filter.complexWindow[length - 1 - i].re, 1e-9);
            }
        }
    }
}

TEST(RbwFilter, ConfinedGaussianMatchesItsDefinition) {
    // The published approximation at sigma 0.1, evaluated independently.
    const int length = 42;
    std::vector<double> taps(length);
    qor::ConfinedGaussianWindow(taps.data(), length);
    const double c = (length - 1) / 2.0;
    const auto g = [&](double x) { return std::exp(-std::pow((x - c) / (2 * 0.1 * length), 2)); };
    const double k = g(0) / (g(length - 1) + g(-length));
    EXPECT_NEAR(taps[0], g(0) - k * (g(length) + g(-length)), 1e-15);
    EXPECT_NEAR(taps[20], g(20) - k * (g(20 + length) + g(20 - length)), 1e-15);
    EXPECT_GT(taps[20], 0.99);
    EXPECT_LT(taps[0], 0.01);
}

}  // namespace
