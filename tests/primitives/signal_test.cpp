// Tones, windows, down-sampling and the image transpose.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ipps.h"

namespace {

constexpr double kTwoPi = 6.283185307179586;

// Many short calls continue one tone: the same samples as one long call, and
// both match the long-double formula; at half the rate the tone alternates
// and its phase stays put.
TEST(Tone, BlocksContinueWithoutSeam) {
    const double f = 0.011428571428571429, magnitude = 2.5;
    const int total = 40000;
    std::vector<Ipp64fc> whole(total), pieces(total);
    double phaseWhole = 1.0, phasePieces = 1.0;
    EXPECT_EQ(ippsTone_64fc(whole.data(), total, magnitude, f, &phaseWhole, ippAlgHintNone), ippStsNoErr);
    for (int at = 0, len = 1; at < total; at += len, len = len * 3 % 5000 + 7) {
        const int n = std::min(len, total - at);
        EXPECT_EQ(ippsTone_64fc(pieces.data() + at, n, magnitude, f, &phasePieces, ippAlgHintFast), ippStsNoErr);
    }
    EXPECT_NEAR(phasePieces, phaseWhole, 1e-9);
    EXPECT_NEAR(phaseWhole, std::fmod(kTwoPi * f * total + 1.0, kTwoPi), 1e-9);
    double worst = 0.0;
    for (int n = 0; n < total; ++n) {
        const long double t = 6.283185307179586476925286766559L * f * n + 1.0L;
        worst = std::max(worst, static_cast<double>(std::fabs(whole[n].re - magnitude * std::cos(t)) +
                                                    std::fabs(whole[n].im - magnitude * std::sin(t))));
        worst = std::max(worst, std::fabs(pieces[n].re - whole[n].re) + std::fabs(pieces[n].im - whole[n].im));
    }
    EXPECT_LT(worst, 1e-14);  // a few ulps of the magnitude

    double phase = 0.0;
    EXPECT_EQ(ippsTone_64fc(whole.data(), 8, 1.0, 0.5, &phase, ippAlgHintFast), ippStsNoErr);
    for (int n = 0; n < 8; ++n) {
        EXPECT_NEAR(whole[n].re, n % 2 ? -1.0 : 1.0, 1e-15);
        EXPECT_NEAR(whole[n].im, 0.0, 1e-15);
    }
    EXPECT_EQ(phase, 0.0);
}

TEST(Tone, RefusesOutOfRangeArguments) {
    std::vector<Ipp64fc> x(4, Ipp64fc{9.0, 9.0});
    double phase = 0.0, bad = kTwoPi;
    EXPECT_EQ(ippsTone_64fc(x.data(), 4, 0.0, 0.1, &phase, ippAlgHintFast), ippStsToneMagnErr);
    EXPECT_EQ(ippsTone_64fc(x.data(), 4, 1.0, 1.0, &phase, ippAlgHintFast), ippStsToneFreqErr);
    EXPECT_EQ(ippsTone_64fc(x.data(), 4, 1.0, -0.1, &phase, ippAlgHintFast), ippStsToneFreqErr);
    EXPECT_EQ(ippsTone_64fc(x.data(), 4, 1.0, 0.1, &bad, ippAlgHintFast), ippStsTonePhaseErr);
    EXPECT_EQ(ippsTone_64fc(x.data(), 0, 1.0, 0.1, &phase, ippAlgHintFast), ippStsSizeErr);
    EXPECT_EQ(ippsTone_64fc(x.data(), 4, 1.0, 0.1, nullptr, ippAlgHintFast), ippStsNullPtrErr);
    EXPECT_EQ(x[0].re, 9.0);
}

TEST(Window, StandardBlackman) {
    std::vector<Ipp64f> w(2047, 2.0);
    EXPECT_EQ(ippsWinBlackmanStd_64f_I(w.data(), 2047), ippStsNoErr);
    EXPECT_NEAR(w[0], 0.0, 1e-15);
    EXPECT_NEAR(w[1023], 2.0, 1e-15);
    const double x = kTwoPi * 300 / 2046;
    EXPECT_NEAR(w[300], 2.0 * (0.42 - 0.5 * std::cos(x) + 0.08 * std::cos(2 * x)), 1e-15);
    EXPECT_EQ(ippsWinBlackmanStd_64f_I(w.data(), 2), ippStsSizeErr);
}

TEST(SampleDown, PhaseCarriesAcrossBlocks) {
    std::vector<Ipp64fc> src(10), dst(10);
    for (int i = 0; i < 10; ++i) src[i] = {static_cast<double>(i), -static_cast<double>(i)};
    int phase = 1, count = 0;
    EXPECT_EQ(ippsSampleDown_64fc(src.data(), 10, dst.data(), &count, 4, &phase), ippStsNoErr);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(dst[2].re, 9.0);
    EXPECT_EQ(phase, 3);
    // Blocks of 7 give the same picks as one run over the joined signal.
    std::vector<Ipp32f> signal(70), picked, out(7);
    for (int i = 0; i < 70; ++i) signal[i] = static_cast<float>(i);
    phase = 2;
    for (int at = 0; at < 70; at += 7) {
        EXPECT_EQ(ippsSampleDown_32f(signal.data() + at, 7, out.data(), &count, 5, &phase), ippStsNoErr);
        picked.insert(picked.end(), out.begin(), out.begin() + count);
    }
    ASSERT_EQ(picked.size(), 14u);
    for (int i = 0; i < 14; ++i) EXPECT_EQ(picked[i], 2.0f + 5 * i);
    phase = 0;
    EXPECT_EQ(ippsSampleDown_32f(signal.data(), 70, out.data(), &count, 0, &phase), ippStsSampleFactorErr);
    phase = 5;
    EXPECT_EQ(ippsSampleDown_32f(signal.data(), 70, out.data(), &count, 5, &phase), ippStsSamplePhaseErr);
}

TEST(Transpose, RegionWithPaddedRows) {
    const int width = 37, height = 70, srcPitch = 40, dstPitch = 75;
    std::vector<Ipp32f> src(srcPitch * height), dst(dstPitch * width, -1.0f);
    for (int i = 0; i < srcPitch * height; ++i) src[i] = static_cast<float>(1000 * (i / srcPitch) + i % srcPitch);
    EXPECT_EQ(ippiTranspose_32f_C1R(src.data(), srcPitch * 4, dst.data(), dstPitch * 4, {width, height}), ippStsNoErr);
    for (int i = 0; i < dstPitch * width; ++i) {
        const int x = i / dstPitch, y = i % dstPitch;
        EXPECT_EQ(dst[i], y < height ? 1000.0f * y + x : -1.0f) << i;
    }
    EXPECT_EQ(ippiTranspose_32f_C1R(src.data(), 4 * width - 4, dst.data(), dstPitch * 4, {width, height}), ippStsStepErr);
    EXPECT_EQ(ippiTranspose_32f_C1R(src.data(), srcPitch * 4, dst.data(), dstPitch * 4, {0, height}), ippStsSizeErr);
}

}  // namespace
