#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <vector>

#include "ipps.h"
#include "path_guard.h"

namespace {

using V = std::vector<Ipp64f>;
using F = std::vector<Ipp32f>;
constexpr double kInf = std::numeric_limits<double>::infinity();

// The status of a call that wrote `into`, and what it wrote.
template <typename T>
void Wrote(IppStatus status, const std::vector<T>& into, const std::vector<T>& expected) {
    EXPECT_EQ(status, ippStsNoErr);
    EXPECT_EQ(into, expected);
}

TEST(Arith, ElementwiseAndConstantFormsKeepTheirOrder) {
    const V a{1.5, -kInf, 3.0}, b{4.0, 3.0, -7.0};
    V d(3);
    Wrote(ippsSub_64f(a.data(), b.data(), d.data(), 3), d, {2.5, kInf, -10.0});  // b - a
    Wrote(ippsAdd_64f(a.data(), b.data(), d.data(), 3), d, {5.5, -kInf, -4.0});
    Wrote(ippsMinEvery_64f(a.data(), b.data(), d.data(), 3), d, {1.5, -kInf, -7.0});
    Wrote(ippsMaxEvery_64f(a.data(), b.data(), d.data(), 3), d, {4.0, 3.0, 3.0});
    Wrote(ippsSqr_64f(b.data(), d.data(), 3), d, {16.0, 9.0, 49.0});
    Wrote(ippsMulC_64f(a.data(), 1.0, d.data(), 3), d, a);
    Wrote(ippsAddC_64f(a.data(), 0.0, d.data(), 3), d, a);
    Wrote(ippsMulC_64f(a.data(), 0.0, d.data(), 3), d, {0.0, 0.0, 0.0});  // also for the infinity
    EXPECT_EQ(ippsAddC_64f_I(1.0, d.data(), 3), ippStsNoErr);
    Wrote(ippsMulC_64f_I(2.0, d.data(), 3), d, {2.0, 2.0, 2.0});

    const F fa{1.0f, -2.0f}, fb{0.5f, 4.0f};
    F fd(2);
    Wrote(ippsAdd_32f(fa.data(), fb.data(), fd.data(), 2), fd, {1.5f, 2.0f});
    Wrote(ippsMul_32f(fa.data(), fb.data(), fd.data(), 2), fd, {0.5f, -8.0f});
    Wrote(ippsMaxEvery_32f(fa.data(), fb.data(), fd.data(), 2), fd, {1.0f, 4.0f});
    EXPECT_EQ(ippsAddC_32f(fa.data(), 0.5f, fd.data(), 2), ippStsNoErr);
    EXPECT_EQ(ippsMulC_32f(fd.data(), 2.0f, fd.data(), 2), ippStsNoErr);
    EXPECT_EQ(ippsAddC_32f_I(-1.0f, fd.data(), 2), ippStsNoErr);
    Wrote(ippsMulC_32f_I(3.0f, fd.data(), 2), fd, {6.0f, -12.0f});
}

TEST(Arith, IntegerSaturationAndRounding) {
    const std::vector<Ipp32u> ua{4000000000u, 5u}, ub{500000000u, 6u};
    std::vector<Ipp32u> ud(2);
    Wrote(ippsAdd_32u(ua.data(), ub.data(), ud.data(), 2), ud, {4294967295u, 11u});
    const Ipp32s big = std::numeric_limits<Ipp32s>::max(), small = std::numeric_limits<Ipp32s>::min();
    const std::vector<Ipp32s> sa{-10, 10, 3, 7}, sb{big, small, 10, 2};
    std::vector<Ipp32s> sd(4);
    Wrote(ippsSub_32s_Sfs(sa.data(), sb.data(), sd.data(), 4, 0), sd, {big, small, 7, -5});
    // 7 / 2 and -5 / 2: ties to even.
    Wrote(ippsSub_32s_Sfs(sa.data() + 2, sb.data() + 2, sd.data(), 2, 1), sd, {4, -2, 7, -5});
    const std::vector<Ipp32s> t{-5, 0, 255, 256, 1000};
    std::vector<Ipp32s> td(5);
    Wrote(ippsThreshold_LTValGTVal_32s(t.data(), td.data(), 5, 0, 0, 255, 255), td, {0, 0, 255, 255, 255});
    EXPECT_EQ(ippsThreshold_LTValGTVal_32s(t.data(), td.data(), 5, 9, 0, 1, 255), ippStsBadArgErr);
}

TEST(Arith, BadArgumentsWriteNothing) {
    V a{1.0}, d{7.0};
    EXPECT_EQ(ippsAdd_64f(a.data(), nullptr, d.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsSub_64f(a.data(), a.data(), d.data(), 0), ippStsSizeErr);
    EXPECT_EQ(ippsMulC_64f_I(2.0, nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(ippsLn_64f(a.data(), d.data(), -1), ippStsSizeErr);
    EXPECT_EQ(ippsMul_64fc(nullptr, nullptr, nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(d[0], 7.0);
}

// Logarithm on every path against long double, with the statuses of zero and negative arguments.
TEST(Transcend, LogarithmAccurateOnEveryPath) {
    std::mt19937_64 rng(3);
    std::uniform_real_distribution<double> exponent(-300.0, 300.0);
    V x(1003);
    for (auto& v : x) v = std::pow(10.0, exponent(rng));
    x[5] = 1.0;
    x[6] = 1.4142135623730951;
    x[7] = std::numeric_limits<double>::denorm_min();
    x[8] = kInf;
    qor_test::OnEachCodePath([&](int) {
        V y(x.size());
        EXPECT_EQ(ippsLn_64f(x.data(), y.data(), static_cast<int>(x.size())), ippStsNoErr);
        for (size_t i = 0; i < x.size(); ++i) {
            const long double ref = std::log(static_cast<long double>(x[i]));
            if (std::isinf(ref)) {
                EXPECT_EQ(y[i], static_cast<double>(ref));
            } else {
                const double ulp = std::nextafter(std::fabs(y[i]), 1e308) - std::fabs(y[i]);
                EXPECT_LE(static_cast<double>(std::fabs(y[i] - ref)), ulp) << x[i];
            }
        }
        F f(x.begin(), x.begin() + 40), g(40);
        for (auto& v : f) v = std::fabs(v) > 1e30f || v < 1e-30f ? 0.75f : v;
        EXPECT_EQ(ippsLn_32f_A11(f.data(), g.data(), 40), ippStsNoErr);
        for (int i = 0; i < 40; ++i) EXPECT_NEAR(g[i], std::log(static_cast<double>(f[i])), 1e-6 * std::fabs(g[i]) + 1e-7);

        V z{2.0, 0.0, 1.0, 4.0, 8.0}, n{-1.0, 0.0, 1.0};
        EXPECT_EQ(ippsLn_64f(z.data(), z.data(), 5), ippStsLnZeroArg);
        EXPECT_EQ(z[1], -kInf);
        EXPECT_DOUBLE_EQ(z[4], std::log(8.0));  // went on after the zero
        EXPECT_EQ(ippsLn_64f(n.data(), n.data(), 3), ippStsLnNegArg);
        EXPECT_TRUE(std::isnan(n[0]));
    });
}

TEST(Transcend, RootAndExponentials) {
    const F f{0.0f, 2.0f, 1e-3f, 50.0f};
    F g(4), e = f;
    EXPECT_EQ(ippsSqrt_32f_A11(f.data(), g.data(), 4), ippStsNoErr);
    EXPECT_EQ(ippsExp_32f_A21(e.data(), e.data(), 4), ippStsNoErr);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(g[i], std::sqrt(static_cast<double>(f[i])), 1e-6 * g[i]);
        EXPECT_NEAR(e[i], std::exp(static_cast<double>(f[i])), 1e-6 * e[i]);
    }
    V d{-1.0, 0.0, 700.0};
    EXPECT_EQ(ippsExp_64f_I(d.data(), 3), ippStsNoErr);
    EXPECT_DOUBLE_EQ(d[0], std::exp(-1.0));
    EXPECT_EQ(d[1], 1.0);
    EXPECT_DOUBLE_EQ(d[2], std::exp(700.0));
}

TEST(Complex, ProductsPowersAndAnglesOnEveryPath) {
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> u(-3.0, 3.0);
    std::vector<Ipp64fc> a(37), b(37);
    for (int i = 0; i < 37; ++i) a[i] = {u(rng), u(rng)}, b[i] = {u(rng), u(rng)};
    qor_test::OnEachCodePath([&](int) {
        std::vector<Ipp64fc> d(37), inPlace = b;
        V p(37);
        EXPECT_EQ(ippsMul_64fc(a.data(), b.data(), d.data(), 37), ippStsNoErr);
        EXPECT_EQ(ippsPowerSpectr_64fc(a.data(), p.data(), 37), ippStsNoErr);
        for (int i = 0; i < 37; ++i) {
            const auto ref = std::complex<long double>(a[i].re, a[i].im) * std::complex<long double>(b[i].re, b[i].im);
            EXPECT_NEAR(d[i].re, static_cast<double>(ref.real()), 4e-15 * 9);
            EXPECT_NEAR(d[i].im, static_cast<double>(ref.imag()), 4e-15 * 9);
            EXPECT_NEAR(p[i], a[i].re * a[i].re + a[i].im * a[i].im, 4e-15 * 9);
        }
        EXPECT_EQ(ippsMul_64fc_I(a.data(), inPlace.data(), 37), ippStsNoErr);
        EXPECT_NEAR(inPlace[36].im, d[36].im, 1e-15 * 9);
        // Angles in every octant, of every scale, with the axes, zeros and a NaN among them.
        std::vector<Ipp32fc> z(1003);
        for (size_t i = 0; i < z.size(); ++i) {
            const double scale = std::pow(10.0, static_cast<double>(i % 13) - 6.0);
            z[i] = {static_cast<float>(u(rng) * scale), static_cast<float>(u(rng) * scale)};
        }
        z[5] = {0.0f, -0.0f}, z[17] = {-0.0f, 0.0f}, z[40] = {-2.0f, 0.0f}, z[41] = {0.0f, 3.0f};
        z[99] = {NAN, 1.0f}, z[100] = {INFINITY, -INFINITY};
        F angle(z.size()), magnitude(z.size());
        EXPECT_EQ(ippsPhase_32fc(z.data(), angle.data(), static_cast<int>(z.size())), ippStsNoErr);
        EXPECT_EQ(ippsMagnitude_32fc(z.data(), magnitude.data(), static_cast<int>(z.size())), ippStsNoErr);
        for (size_t i = 0; i < z.size(); ++i) {
            const float hypot = static_cast<float>(std::hypot(double{z[i].re}, double{z[i].im}));
            if (!std::isnan(hypot)) {
                EXPECT_EQ(magnitude[i], hypot) << i;
            }
            const double ref = std::atan2(static_cast<double>(z[i].im), static_cast<double>(z[i].re));
            if (std::isnan(ref)) {
                EXPECT_TRUE(std::isnan(angle[i])) << i;
            } else {
                EXPECT_NEAR(angle[i], ref, 4e-7) << i;
                EXPECT_EQ(std::signbit(angle[i]), std::signbit(ref)) << i;
            }
        }
    });
    std::vector<Ipp64fc> c{{3.0, -4.0}, {-1.0, 0.0}};
    EXPECT_EQ(ippsConj_64fc(c.data(), c.data(), 2), ippStsNoErr);
    EXPECT_EQ(c[0].im, 4.0);
    V m(2);
    Wrote(ippsMagnitude_64fc(c.data(), m.data(), 2), m, {5.0, 1.0});
    const std::vector<Ipp32fc> fc{{3.0f, 4.0f}, {0.0f, -2.0f}, {-1.0f, 0.0f}};
    F out(3);
    Wrote(ippsPowerSpectr_32fc(fc.data(), out.data(), 3), out, {25.0f, 4.0f, 1.0f});
    EXPECT_EQ(ippsPhase_32fc(fc.data(), out.data(), 3), ippStsNoErr);
    EXPECT_FLOAT_EQ(out[1], -1.5707964f);
    EXPECT_FLOAT_EQ(out[2], 3.1415927f);
}

}  // namespace
