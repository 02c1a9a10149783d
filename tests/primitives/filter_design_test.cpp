#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ipps.h"
#include "python_oracle.h"

namespace {

// The windowed sinc as numpy writes it from the definitions, every window and parity.
TEST(FirDesign, MatchesNumpyWindowedSinc) {
    QOR_REQUIRE_PYTHON_ORACLE();
    struct Case { double cutoff; int taps; int window; };
    const std::vector<Case> cases = {{0.1, 5, 0}, {0.2, 64, 1}, {0.05, 101, 2}, {0.37, 33, 3}, {0.25, 20, 4}, {0.01, 2048, 1}};
    std::vector<double> spec, ours;
    for (const Case& c : cases) {
        spec.insert(spec.end(), {c.cutoff, static_cast<double>(c.taps), static_cast<double>(c.window)});
        std::vector<Ipp64f> taps(c.taps);
        for (int normalise : {0, 1}) {
            ASSERT_EQ(ippsFIRGenLowpass_64f(c.cutoff, taps.data(), c.taps, static_cast<IppWinType>(c.window),
                                            static_cast<IppBool>(normalise)),
                      ippStsNoErr);
            ours.insert(ours.end(), taps.begin(), taps.end());
        }
    }
    const std::vector<double> expected = qor_test::PythonOracle::Run(R"(
spec = inp(0).reshape(-1, 3)
parts = []
for r, n, win in spec:
    n = int(n); k = np.arange(n); d = k - (n - 1) / 2.0
    ideal = np.where(d == 0, 2 * r, np.sin(2 * np.pi * r * d) / (np.pi * np.where(d == 0, 1, d)))
    x = 2 * np.pi * k / (n - 1)
    if win == 0: w = 1 - np.abs(2 * k / (n - 1) - 1)
    elif win == 1:
        a = -(0.5 / np.cos(np.pi / (n - 1))) ** 2
        w = (a + 1) / 2 - 0.5 * np.cos(x) - a / 2 * np.cos(2 * x)
    elif win == 2: w = 0.54 - 0.46 * np.cos(x)
    elif win == 3: w = 0.5 - 0.5 * np.cos(x)
    else: w = np.ones(n)
    h = ideal * w
    parts += [h, h / abs(h.sum())]
out(np.concatenate(parts))
)", {spec});
    ASSERT_EQ(expected.size(), ours.size());
    for (size_t i = 0; i < ours.size(); ++i) EXPECT_NEAR(ours[i], expected[i], 1e-14) << i;
}

TEST(FirDesign, NormalisedSumAndRefusals) {
    std::vector<Ipp64f> taps(2048, 7.0);
    ASSERT_EQ(ippsFIRGenLowpass_64f(0.01, taps.data(), 2048, ippWinBlackman, ippTrue), ippStsNoErr);
    double sum = 0.0;
    for (double t : taps) sum += t;
    EXPECT_NEAR(sum, 1.0, 1e-13);
    EXPECT_EQ(taps[0], taps[2047]);
    std::vector<Ipp64f> small(4, 7.0);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.1, small.data(), 4, ippWinHann, ippFalse), ippStsSizeErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.5, taps.data(), 64, ippWinHann, ippFalse), ippStsSizeErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.0, taps.data(), 64, ippWinHann, ippFalse), ippStsSizeErr);
    EXPECT_EQ(ippsFIRGenLowpass_64f(0.1, nullptr, 64, ippWinHann, ippFalse), ippStsNullPtrErr);
    EXPECT_EQ(small[0], 7.0);
}

// Butterworth and Chebyshev type I, low and high pass, orders 1 to 12, against scipy.
TEST(IirDesign, MatchesScipy) {
    QOR_REQUIRE_PYTHON_ORACLE();
    std::vector<double> spec, ours;
    for (int order = 1; order <= 12; ++order) {
        for (int family = 0; family <= 1; ++family) {
            for (int high = 0; high <= 1; ++high) {
                const double cutoff = 0.02 + 0.035 * order, ripple = 0.1 + 0.2 * order;
                spec.insert(spec.end(), {static_cast<double>(order), static_cast<double>(family),
                                         static_cast<double>(high), cutoff, ripple});
                std::vector<Ipp64f> taps(2 * order + 2);
                const auto type = static_cast<IppsIIRFilterType>(family);
                ASSERT_EQ(high ? ippsIIRGenHighpass_64f(cutoff, ripple, order, taps.data(), type)
                               : ippsIIRGenLowpass_64f(cutoff, ripple, order, taps.data(), type),
                          ippStsNoErr);
                ours.insert(ours.end(), taps.begin(), taps.end());
            }
        }
    }
    const std::vector<double> expected = qor_test::PythonOracle::Run(R"(
parts = []
for order, family, high, cutoff, ripple in inp(0).reshape(-1, 5):
    kind = 'highpass' if high else 'lowpass'
    if family == 0: b, a = sig.butter(int(order), 2 * cutoff, kind)
    else: b, a = sig.cheby1(int(order), ripple, 2 * cutoff, kind)
    parts += [b, a]
out(np.concatenate(parts))
)", {spec});
    ASSERT_EQ(expected.size(), ours.size());
    size_t at = 0;
    for (int order = 1; order <= 12; ++order) {
        for (int variant = 0; variant < 4; ++variant) {
            double scale = 0.0;
            for (int i = 0; i < 2 * order + 2; ++i) scale = std::max(scale, std::fabs(expected[at + i]));
            for (int i = 0; i < 2 * order + 2; ++i, ++at) {
                EXPECT_NEAR(ours[at], expected[at], 1e-12 * scale) << "order " << order << " variant " << variant;
            }
        }
    }
}

TEST(IirDesign, RefusesOutOfRangeArguments) {
    std::vector<Ipp64f> taps(26, 7.0);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 1.0, 0, taps.data(), ippButterworth), ippStsIIROrderErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 1.0, 13, taps.data(), ippButterworth), ippStsIIROrderErr);
    EXPECT_EQ(ippsIIRGenHighpass_64f(0.5, 1.0, 2, taps.data(), ippButterworth), ippStsFilterFrequencyErr);
    EXPECT_EQ(ippsIIRGenHighpass_64f(0.1, 0.0, 2, taps.data(), ippChebyshev1), ippStsRippleErr);
    EXPECT_EQ(ippsIIRGenHighpass_64f(0.1, 1.0, 2, taps.data(), static_cast<IppsIIRFilterType>(5)), ippStsBadArgErr);
    EXPECT_EQ(ippsIIRGenLowpass_64f(0.1, 1.0, 2, nullptr, ippButterworth), ippStsNullPtrErr);
    EXPECT_EQ(taps[0], 7.0);
}

}  // namespace
