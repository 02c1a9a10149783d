#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "ipps.h"
#include "path_guard.h"
#include "python_oracle.h"

namespace {

using Vec = std::vector<Ipp64fc>;
constexpr long double kTwoPi = 6.283185307179586476925286766559L;

// Owns the memories of one transform size.
class Fft {
public:
    explicit Fft(int order, int flag = IPP_FFT_DIV_FWD_BY_N) {
        int specSize = 0, initSize = 0, workSize = 0;
        EXPECT_EQ(ippsFFTGetSize_C_64fc(order, flag, ippAlgHintFast, &specSize, &initSize, &workSize), ippStsNoErr);
        specMemory_ = ippsMalloc_8u(specSize);
        work_ = ippsMalloc_8u(workSize);
        Ipp8u* init = ippsMalloc_8u(initSize);
        EXPECT_EQ(ippsFFTInit_C_64fc(&spec_, order, flag, ippAlgHintFast, specMemory_, init), ippStsNoErr);
        ippsFree(init);
    }
    ~Fft() {
        ippsFree(specMemory_);
        ippsFree(work_);
    }
    Fft(const Fft&) = delete;
    Fft& operator=(const Fft&) = delete;
    void Forward(const Ipp64fc* src, Ipp64fc* dst) { ASSERT_EQ(ippsFFTFwd_CToC_64fc(src, dst, spec_, work_), ippStsNoErr); }
    void Inverse(const Ipp64fc* src, Ipp64fc* dst) { ASSERT_EQ(ippsFFTInv_CToC_64fc(src, dst, spec_, work_), ippStsNoErr); }
    IppsFFTSpec_C_64fc* spec_ = nullptr;
    Ipp8u* work_ = nullptr;

private:
    Ipp8u* specMemory_ = nullptr;
};

Vec RandomSignal(size_t n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    Vec x(n);
    for (auto& v : x) v = {u(rng), u(rng)};
    return x;
}

// max |a - b| over max |b|.
double RelativeError(const Vec& a, const Vec& b) {
    double diff = 0.0, peak = 0.0;
    for (size_t i = 0; i < a.size(); ++i) {
        diff = std::max(diff, std::hypot(a[i].re - b[i].re, a[i].im - b[i].im));
        peak = std::max(peak, std::hypot(b[i].re, b[i].im));
    }
    return diff / peak;
}

// A few ulps times log N.
double Bound(int order) { return 4.0 * std::numeric_limits<double>::epsilon() * (order + 1); }

// The DFT in long double, scaled, exact angles from reduced index products.
Vec ReferenceDft(const Vec& x, bool inverse, long double scale) {
    const size_t n = x.size();
    Vec y(n);
    for (size_t k = 0; k < n; ++k) {
        long double re = 0.0L, im = 0.0L;
        for (size_t i = 0; i < n; ++i) {
            const long double angle = (inverse ? kTwoPi : -kTwoPi) * static_cast<long double>((i * k) % n) / n;
            re += x[i].re * std::cos(angle) - x[i].im * std::sin(angle);
            im += x[i].re * std::sin(angle) + x[i].im * std::cos(angle);
        }
        y[k] = {static_cast<double>(re * scale), static_cast<double>(im * scale)};
    }
    return y;
}

TEST(Fft, RefusesBadArguments) {
    int a = 0, b = 0, c = 0;
    EXPECT_EQ(ippsFFTGetSize_C_64fc(-1, 1, ippAlgHintFast, &a, &b, &c), ippStsFFTOrderErr);
    EXPECT_EQ(ippsFFTGetSize_C_64fc(25, 1, ippAlgHintFast, &a, &b, &c), ippStsFFTOrderErr);
    EXPECT_EQ(ippsFFTGetSize_C_64fc(4, 3, ippAlgHintFast, &a, &b, &c), ippStsFFTFlagErr);
    EXPECT_EQ(ippsFFTGetSize_C_64fc(4, 1, ippAlgHintFast, nullptr, &b, &c), ippStsNullPtrErr);
    IppsFFTSpec_C_64fc* spec = nullptr;
    std::vector<Ipp8u> memory(1 << 16, 0);
    EXPECT_EQ(ippsFFTInit_C_64fc(&spec, 4, 1, ippAlgHintFast, memory.data(), nullptr), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInit_C_64fc(&spec, 4, 0, ippAlgHintFast, memory.data(), memory.data()), ippStsFFTFlagErr);
    Vec x(1024);
    const auto* garbage = reinterpret_cast<const IppsFFTSpec_C_64fc*>(memory.data() + 64);
    EXPECT_EQ(ippsFFTFwd_CToC_64fc(x.data(), x.data(), garbage, memory.data()), ippStsContextMatchErr);
    Fft fft(10);
    EXPECT_EQ(ippsFFTFwd_CToC_64fc(nullptr, x.data(), fft.spec_, fft.work_), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTInv_CToC_64fc(x.data(), x.data(), fft.spec_, nullptr), ippStsNullPtrErr);
    EXPECT_EQ(ippsFFTFwdWindowed_CToC_64fc(x.data(), nullptr, 0, x.data(), fft.spec_, fft.work_), ippStsNullPtrErr);
}

// Small sizes against the long-double DFT, both directions and every flag.
TEST(Fft, SmallSizesMatchLongDoubleDft) {
    qor_test::OnEachCodePath([](int) {
        for (int order = 0; order <= 9; ++order) {
            SCOPED_TRACE(order);
            const size_t n = size_t{1} << order;
            const Vec x = RandomSignal(n, order);
            struct Case { int flag; long double fwd, inv; };
            const long double rn = 1.0L / n, rs = 1.0L / std::sqrt(static_cast<long double>(n));
            for (const Case& c : {Case{IPP_FFT_DIV_FWD_BY_N, rn, 1.0L}, Case{IPP_FFT_DIV_INV_BY_N, 1.0L, rn},
                                  Case{IPP_FFT_DIV_BY_SQRTN, rs, rs}, Case{IPP_FFT_NODIV_BY_ANY, 1.0L, 1.0L}}) {
                Fft fft(order, c.flag);
                Vec y(n);
                fft.Forward(x.data(), y.data());
                EXPECT_LE(RelativeError(y, ReferenceDft(x, false, c.fwd)), Bound(order)) << "flag " << c.flag;
                fft.Inverse(x.data(), y.data());
                EXPECT_LE(RelativeError(y, ReferenceDft(x, true, c.inv)), Bound(order)) << "flag " << c.flag;
            }
        }
    });
}

// Every size up to 2^20 against numpy, and back again, in place and out of place.
TEST(Fft, LargeSizesMatchNumpyAndRoundTrip) {
    QOR_REQUIRE_PYTHON_ORACLE();
    std::vector<double> packed;
    std::vector<Vec> inputs;
    for (int order = 10; order <= 20; ++order) {
        inputs.push_back(RandomSignal(size_t{1} << order, 100 + order));
        for (const Ipp64fc& v : inputs.back()) packed.insert(packed.end(), {v.re, v.im});
    }
    const std::vector<double> expected = qor_test::PythonOracle::Run(R"(
x = inp(0).view(np.complex128)
parts, at = [], 0
for order in range(10, 21):
    n = 1 << order
    parts.append(np.fft.fft(x[at:at + n]) / n)
    at += n
out(np.concatenate(parts).view(np.float64))
)", {packed});
    qor_test::OnEachCodePath([&](int) {
        size_t at = 0;
        for (int order = 10; order <= 20; ++order) {
            SCOPED_TRACE(order);
            const size_t n = size_t{1} << order;
            const Vec& x = inputs[order - 10];
            Vec reference(n), y(n);
            for (size_t i = 0; i < n; ++i, ++at) reference[i] = {expected[2 * at], expected[2 * at + 1]};
            Fft fft(order);
            fft.Forward(x.data(), y.data());
            EXPECT_LE(RelativeError(y, reference), Bound(order));
            fft.Inverse(y.data(), y.data());
            EXPECT_LE(RelativeError(y, x), 2 * Bound(order));
            y = x;
            fft.Forward(y.data(), y.data());
            EXPECT_LE(RelativeError(y, reference), Bound(order));
        }
    });
}

// The window's product taken inside the transform against the calls it stands
// for, with and without the conjugation, below and above the split of the large
// sizes; and the power of that transform (halves swapped), which they never store.
TEST(Fft, WindowedForwardIsConjugateMultiplyForward) {
    qor_test::OnEachCodePath([](int) {
        for (int order : {3, 6, 11, 12, 17, 18}) {
            const size_t n = size_t{1} << order;
            const Vec x = RandomSignal(n, 7 + order), window = RandomSignal(n, 70 + order);
            Fft fft(order);
            for (int conjugate : {0, 1}) {
                SCOPED_TRACE(testing::Message() << "order " << order << " conjugate " << conjugate);
                Vec reference = x, y(n), scratch(n);
                if (conjugate) ippsConj_64fc(x.data(), reference.data(), static_cast<int>(n));
                ippsMul_64fc_I(window.data(), reference.data(), static_cast<int>(n));
                fft.Forward(reference.data(), reference.data());
                ASSERT_EQ(ippsFFTFwdWindowed_CToC_64fc(x.data(), window.data(), conjugate, y.data(), fft.spec_, fft.work_),
                          ippStsNoErr);
                EXPECT_LE(RelativeError(y, reference), Bound(order));
                std::vector<double> power(n);
                ASSERT_EQ(ippsFFTFwdWindowedPower_64fc(x.data(), window.data(), conjugate, scratch.data(), power.data(),
                                                       fft.spec_, fft.work_),
                          ippStsNoErr);
                double worst = 0.0, peak = 0.0;
                for (size_t i = 0; i < n; ++i) {
                    const Ipp64fc v = reference[(i + n / 2) % n];
                    worst = std::max(worst, std::fabs(power[i] - (v.re * v.re + v.im * v.im)));
                    peak = std::max(peak, v.re * v.re + v.im * v.im);
                }
                EXPECT_LE(worst / peak, 4 * Bound(order));
            }
        }
    });
}

// 2^24 once: a sparse input whose transform is known exactly at chosen bins, and the round trip.
TEST(Fft, LargestSize) {
    constexpr int kOrder = 24;
    const size_t n = size_t{1} << kOrder;
    Vec x(n, Ipp64fc{0.0, 0.0}), y(n);
    const size_t positions[] = {0, 1, 12345, n / 3, n - 1};
    const Ipp64fc values[] = {{0.5, -0.25}, {1.0, 0.0}, {-0.75, 0.5}, {0.125, 1.0}, {0.3, -0.9}};
    for (int i = 0; i < 5; ++i) x[positions[i]] = values[i];
    Fft fft(kOrder);
    fft.Forward(x.data(), y.data());
    double worst = 0.0;
    for (size_t k : {size_t{0}, size_t{1}, size_t{777}, n / 2, n / 5, n - 3}) {
        long double re = 0.0L, im = 0.0L;
        for (int i = 0; i < 5; ++i) {
            const unsigned __int128 product = static_cast<unsigned __int128>(positions[i]) * k;
            const long double angle = -kTwoPi * static_cast<long double>(static_cast<size_t>(product % n)) / n;
            re += values[i].re * std::cos(angle) - values[i].im * std::sin(angle);
            im += values[i].re * std::sin(angle) + values[i].im * std::cos(angle);
        }
        worst = std::max(worst, static_cast<double>(std::hypot(y[k].re - re / n, y[k].im - im / n)));
    }
    EXPECT_LE(worst * n / 2.0, Bound(kOrder));  // the largest output is near 2 / N
    fft.Inverse(y.data(), y.data());
    double roundTrip = 0.0;
    for (size_t i = 0; i < n; ++i) roundTrip = std::max(roundTrip, std::hypot(y[i].re - x[i].re, y[i].im - x[i].im));
    EXPECT_LE(roundTrip, 2 * Bound(kOrder));
}

}  // namespace
