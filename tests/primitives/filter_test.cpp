// FIR and IIR filtering: against a long-double direct convolution and scipy,
// block by block against one call, in place, on every code path.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <type_traits>
#include <vector>

#include "ipps.h"
#include "path_guard.h"
#include "python_oracle.h"

namespace {

using LC = std::complex<long double>;

LC ToLong(Ipp32f v) { return {v, 0.0L}; }
LC ToLong(Ipp64f v) { return {v, 0.0L}; }
LC ToLong(Ipp32fc v) { return {v.re, v.im}; }
LC ToLong(Ipp64fc v) { return {v.re, v.im}; }

template <typename T> T Random(std::mt19937_64& rng);
template <> Ipp32f Random(std::mt19937_64& rng) { return std::uniform_real_distribution<float>(-1, 1)(rng); }
template <> Ipp64f Random(std::mt19937_64& rng) { return std::uniform_real_distribution<double>(-1, 1)(rng); }
template <> Ipp32fc Random(std::mt19937_64& rng) { return {Random<Ipp32f>(rng), Random<Ipp32f>(rng)}; }
template <> Ipp64fc Random(std::mt19937_64& rng) { return {Random<Ipp64f>(rng), Random<Ipp64f>(rng)}; }

// The per-type primitives behind one interface, the state in caller memory.
template <typename T> struct Fir;
#define QOR_FIR_OPS(T, State, SizeFn, InitFn, RunFn)                                                   \
    template <> struct Fir<T> {                                                                        \
        State* state = nullptr;                                                                        \
        std::vector<Ipp8u> memory;                                                                     \
        IppStatus Init(const T* taps, int count, const T* delay) {                                     \
            int size = 0;                                                                              \
            if (IppStatus s = SizeFn(count, &size)) return s;                                          \
            memory.assign(size, 0xAB);                                                                 \
            return InitFn(&state, taps, count, delay, memory.data());                                  \
        }                                                                                              \
        IppStatus Run(const T* src, T* dst, int n) { return RunFn(src, dst, n, state); }               \
    };
QOR_FIR_OPS(Ipp32f, IppsFIRState_32f, ippsFIRGetStateSize_32f, ippsFIRInit_32f, ippsFIR_32f)
QOR_FIR_OPS(Ipp32fc, IppsFIRState_32fc, ippsFIRGetStateSize_32fc, ippsFIRInit_32fc, ippsFIR_32fc)
QOR_FIR_OPS(Ipp64fc, IppsFIRState_64fc, ippsFIRGetStateSize_64fc, ippsFIRInit_64fc, ippsFIR_64fc)
#undef QOR_FIR_OPS

// The real double filter exists only in the allocating form.
template <> struct Fir<Ipp64f> {
    IppsFIRState_64f* state = nullptr;
    IppStatus Init(const Ipp64f* taps, int count, const Ipp64f* delay) {
        if (state) ippsFIRFree_64f(state);
        return ippsFIRInitAlloc_64f(&state, taps, count, delay);
    }
    IppStatus Run(const Ipp64f* src, Ipp64f* dst, int n) { return ippsFIR_64f(src, dst, n, state); }
    ~Fir() {
        if (state) ippsFIRFree_64f(state);
    }
};

template <typename T>
class FirTest : public testing::Test {};
using SampleTypes = testing::Types<Ipp32f, Ipp64f, Ipp32fc, Ipp64fc>;
TYPED_TEST_SUITE(FirTest, SampleTypes);

// Direct and fast-convolution tap counts, with a delay line (none for 301
// taps: zeros), in blocks of irregular lengths and in place; the output equals
// the exact convolution.
TYPED_TEST(FirTest, MatchesExactConvolutionInBlocksAndInPlace) {
    using T = TypeParam;
    constexpr bool isFloat = std::is_same_v<T, Ipp32f> || std::is_same_v<T, Ipp32fc>;
    const double tolerance = isFloat ? 2e-6 : 1e-12;
    for (int taps : {1, 5, 64, 127, 128, 301, 2048}) {
        SCOPED_TRACE(testing::Message() << taps << " taps");
        std::mt19937_64 rng(taps);
        const int length = taps >= 2048 ? 9000 : 3000;
        const bool noDelay = taps == 301;
        std::vector<T> h(taps), delay(taps), x(length);
        for (auto& v : h) v = Random<T>(rng);
        for (auto& v : delay) v = noDelay ? T{} : Random<T>(rng);
        for (auto& v : x) v = Random<T>(rng);
        // delay[i] = x[i - (taps - 1)]
        std::vector<LC> expected(length);
        double peak = 0.0;
        for (int n = 0; n < length; ++n) {
            LC sum = 0.0L;
            for (int k = 0; k < taps; ++k) {
                const int i = n - k;
                sum += ToLong(h[k]) * (i >= 0 ? ToLong(x[i]) : ToLong(delay[i + taps - 1]));
            }
            expected[n] = sum;
            peak = std::max(peak, static_cast<double>(std::abs(sum)));
        }
        qor_test::OnEachCodePath([&](int) {
            Fir<T> fir;
            ASSERT_EQ(fir.Init(h.data(), taps, noDelay ? nullptr : delay.data()), ippStsNoErr);
            std::vector<T> y = x;
            // Blocks from 1 sample to more than a fast-convolution chunk.
            for (int at = 0, len = 1; at < length; at += len, len = (len * 7 + 3) % 7001 + 1) {
                const int n = std::min(len, length - at);
                ASSERT_EQ(fir.Run(y.data() + at, y.data() + at, n), ippStsNoErr);
            }
            double worst = 0.0;
            for (int n = 0; n < length; ++n) worst = std::max(worst, static_cast<double>(std::abs(ToLong(y[n]) - expected[n])));
            EXPECT_LE(worst, tolerance * peak);
        });
    }
}

// Filtering and sampling down in one call gives what the two calls give, in
// stream blocks of a multiple of the factor (the folded transform) and in
// ragged ones with a running phase (the whole output, sampled).
// The output of filtering `x` and sampling it down by `factor`, in one call
// (`fused`) or in two, in blocks of 16384 or of ragged lengths.
template <typename T, typename Fused, typename SampleDown>
std::vector<T> FilterDown(const std::vector<T>& h, const std::vector<T>& x, int factor, bool ragged, bool fused,
                          Fused fusedCall, SampleDown sampleDown, int* phase) {
    Fir<T> fir;
    EXPECT_EQ(fir.Init(h.data(), static_cast<int>(h.size()), nullptr), ippStsNoErr);
    std::vector<T> full(x.size()), out(x.size());
    int produced = 0;
    *phase = 0;
    for (int at = 0, len = 16384; at < static_cast<int>(x.size()); at += len) {
        if (ragged) len = 1000 + (at * 7) % 9001;
        const int n = std::min(len, static_cast<int>(x.size()) - at);
        int count = 0;
        if (fused) {
            EXPECT_EQ(fusedCall(x.data() + at, n, out.data() + produced, &count, factor, phase, fir.state), ippStsNoErr);
        } else {
            EXPECT_EQ(fir.Run(x.data() + at, full.data(), n), ippStsNoErr);
            sampleDown(full.data(), n, out.data() + produced, &count, factor, phase);
        }
        produced += count;
    }
    out.resize(static_cast<std::size_t>(produced));
    return out;
}

// Filtering and sampling down in one call gives what the two calls give, in
// stream blocks of a multiple of the factor (the folded transform) and in
// ragged ones with a running phase (the whole output, sampled).
TEST(Fir, SampledDownEqualsFilterThenSampleDown) {
    std::mt19937_64 rng(3);
    std::vector<Ipp64fc> h(2048), x(40000);
    std::vector<Ipp32f> hr(2048), xr(40000);
    for (auto& v : h) v = Random<Ipp64fc>(rng);
    for (auto& v : x) v = Random<Ipp64fc>(rng);
    for (auto& v : hr) v = Random<Ipp32f>(rng);
    for (auto& v : xr) v = Random<Ipp32f>(rng);
    qor_test::OnEachCodePath([&](int) {
        for (int factor : {1, 2, 8, 16, 128}) {
            for (bool ragged : {false, true}) {
                SCOPED_TRACE(testing::Message() << "factor " << factor << (ragged ? ", ragged blocks" : ""));
                int phase = 0, fusedPhase = 0;
                const auto want = FilterDown(h, x, factor, ragged, false, ippsFIRSampleDown_64fc, ippsSampleDown_64fc, &phase);
                const auto got = FilterDown(h, x, factor, ragged, true, ippsFIRSampleDown_64fc, ippsSampleDown_64fc, &fusedPhase);
                ASSERT_EQ(got.size(), want.size());
                EXPECT_EQ(fusedPhase, phase);
                double worst = 0.0;
                for (size_t i = 0; i < got.size(); ++i) worst = std::max(worst, static_cast<double>(std::abs(ToLong(got[i]) - ToLong(want[i]))));
                EXPECT_LE(worst, 1e-11);
                const auto wantReal = FilterDown(hr, xr, factor, ragged, false, ippsFIRSampleDown_32f, ippsSampleDown_32f, &phase);
                const auto gotReal = FilterDown(hr, xr, factor, ragged, true, ippsFIRSampleDown_32f, ippsSampleDown_32f, &phase);
                ASSERT_EQ(gotReal.size(), wantReal.size());
                worst = 0.0;
                for (size_t i = 0; i < gotReal.size(); ++i) worst = std::max(worst, std::fabs(double{gotReal[i]} - wantReal[i]));
                EXPECT_LE(worst, 2e-5);
            }
        }
    });
    Fir<Ipp64fc> fir;
    ASSERT_EQ(fir.Init(h.data(), 2048, nullptr), ippStsNoErr);
    int count = 0, phase = 0;
    EXPECT_EQ(ippsFIRSampleDown_64fc(x.data(), 100, x.data(), &count, 0, &phase, fir.state), ippStsSampleFactorErr);
    phase = 4;
    EXPECT_EQ(ippsFIRSampleDown_64fc(x.data(), 100, x.data(), &count, 4, &phase, fir.state), ippStsSamplePhaseErr);
    EXPECT_EQ(ippsFIRSampleDown_64fc(x.data(), 100, x.data(), nullptr, 4, &phase, fir.state), ippStsNullPtrErr);
}

TEST(Fir, RefusesBadArguments) {
    int size = 0;
    EXPECT_EQ(ippsFIRGetStateSize_64fc(0, &size), ippStsFIRLenErr);
    EXPECT_EQ(ippsFIRGetStateSize_32f(5, nullptr), ippStsNullPtrErr);
    std::vector<Ipp64fc> taps(8, Ipp64fc{1.0, 0.0}), x(8);
    std::vector<Ipp8u> memory(1 << 16);
    IppsFIRState_64fc* state = nullptr;
    EXPECT_EQ(ippsFIRInit_64fc(&state, taps.data(), 8, nullptr, nullptr), ippStsNullPtrErr);
    EXPECT_EQ(ippsFIRInit_64fc(&state, taps.data(), 0, nullptr, memory.data()), ippStsFIRLenErr);
    ASSERT_EQ(ippsFIRInit_64fc(&state, taps.data(), 8, nullptr, memory.data()), ippStsNoErr);
    EXPECT_EQ(ippsFIR_64fc(x.data(), x.data(), 0, state), ippStsSizeErr);
    EXPECT_EQ(ippsFIR_64fc(x.data(), nullptr, 8, state), ippStsNullPtrErr);
    // A complex double state passed as another kind, and a state not made by the allocating form.
    EXPECT_EQ(ippsFIR_32fc(reinterpret_cast<const Ipp32fc*>(x.data()), reinterpret_cast<Ipp32fc*>(x.data()), 8,
                           reinterpret_cast<IppsFIRState_32fc*>(state)),
              ippStsContextMatchErr);
    EXPECT_EQ(ippsFIRFree_64f(reinterpret_cast<IppsFIRState_64f*>(state)), ippStsContextMatchErr);
    IppsFIRState_64f* real = nullptr;
    EXPECT_EQ(ippsFIRInitAlloc_64f(&real, nullptr, 8, nullptr), ippStsNullPtrErr);
}

// Butterworth and Chebyshev sections against scipy.signal.lfilter, in blocks and in place.
TEST(Iir, MatchesScipyLfilterInBlocks) {
    QOR_REQUIRE_PYTHON_ORACLE();
    std::mt19937_64 rng(9);
    std::vector<Ipp32f> x(5000);
    for (auto& v : x) v = Random<Ipp32f>(rng);
    struct Case { int order; bool high; IppsIIRFilterType family; double cutoff; };
    for (const Case& c : {Case{1, false, ippButterworth, 0.002}, Case{2, true, ippChebyshev1, 0.003},
                          Case{4, false, ippButterworth, 0.05},
                          Case{6, true, ippChebyshev1, 0.1}, Case{12, false, ippChebyshev1, 0.2}}) {
        SCOPED_TRACE(c.order);
        std::vector<Ipp64f> taps64(2 * c.order + 2);
        ASSERT_EQ(c.high ? ippsIIRGenHighpass_64f(c.cutoff, 0.5, c.order, taps64.data(), c.family)
                         : ippsIIRGenLowpass_64f(c.cutoff, 0.5, c.order, taps64.data(), c.family),
                  ippStsNoErr);
        std::vector<Ipp32f> taps(taps64.begin(), taps64.end());
        const std::vector<double> expected = qor_test::PythonOracle::Run(R"(
t = inp(1).astype(np.float32).astype(np.float64); n = len(t) // 2
out(sig.lfilter(t[:n], t[n:], inp(0)))
)", {std::vector<double>(x.begin(), x.end()), std::vector<double>(taps.begin(), taps.end())});
        int size = 0;
        ASSERT_EQ(ippsIIRGetStateSize_32f(c.order, &size), ippStsNoErr);
        std::vector<Ipp8u> memory(size);
        IppsIIRState_32f* state = nullptr;
        ASSERT_EQ(ippsIIRInit_32f(&state, taps.data(), c.order, nullptr, memory.data()), ippStsNoErr);
        std::vector<Ipp32f> y = x;
        for (int at = 0, len = 1; at < 5000; at += len, len = len * 5 % 997 + 1) {
            ASSERT_EQ(ippsIIR_32f(y.data() + at, y.data() + at, std::min(len, 5000 - at), state), ippStsNoErr);
        }
        double peak = 0.0, worst = 0.0;
        for (int i = 0; i < 5000; ++i) {
            peak = std::max(peak, std::fabs(expected[i]));
            worst = std::max(worst, std::fabs(y[i] - expected[i]));
        }
        EXPECT_LE(worst, 1e-6 * peak);
    }
}

// Long calls of a first order run in lanes: in place and across calls they
// give what calls too short for lanes give (those are checked above).
TEST(Iir, FirstOrderInLanesMatchesThePlainRecursion) {
    std::mt19937_64 rng(11);
    std::vector<Ipp32f> x(30000);
    for (auto& v : x) v = Random<Ipp32f>(rng);
    for (double cutoff : {0.0007, 0.2}) {
        SCOPED_TRACE(cutoff);
        std::vector<Ipp64f> taps64(4);
        ASSERT_EQ(ippsIIRGenLowpass_64f(cutoff, 0.2, 1, taps64.data(), ippButterworth), ippStsNoErr);
        const std::vector<Ipp32f> taps(taps64.begin(), taps64.end());
        int size = 0;
        ASSERT_EQ(ippsIIRGetStateSize_32f(1, &size), ippStsNoErr);
        const auto filter = [&](const std::vector<int>& lengths) {
            std::vector<Ipp8u> memory(size);
            IppsIIRState_32f* state = nullptr;
            EXPECT_EQ(ippsIIRInit_32f(&state, taps.data(), 1, nullptr, memory.data()), ippStsNoErr);
            std::vector<Ipp32f> y = x;
            int at = 0;
            for (int length : lengths) {
                EXPECT_EQ(ippsIIR_32f(y.data() + at, y.data() + at, length, state), ippStsNoErr);
                at += length;
            }
            return y;
        };
        const std::vector<Ipp32f> want = filter(std::vector<int>(60, 500));
        const std::vector<Ipp32f> got = filter({4096, 9001, 1031, 15872});
        double peak = 0.0, worst = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            peak = std::max(peak, std::fabs(double{want[i]}));
            worst = std::max(worst, std::fabs(double{got[i]} - want[i]));
        }
        EXPECT_LE(worst, 1e-6 * peak);
    }
}

TEST(Iir, RefusesBadArguments) {
    int size = 0;
    EXPECT_EQ(ippsIIRGetStateSize_32f(13, &size), ippStsIIROrderErr);
    EXPECT_EQ(ippsIIRGetStateSize_32f(2, nullptr), ippStsNullPtrErr);
    std::vector<Ipp8u> memory(4096);
    const std::vector<Ipp32f> zeroA0{1.0f, 1.0f, 0.0f, 0.5f};
    IppsIIRState_32f* state = nullptr;
    EXPECT_EQ(ippsIIRInit_32f(&state, zeroA0.data(), 1, nullptr, memory.data()), ippStsDivByZeroErr);
    EXPECT_EQ(ippsIIRInit_32f(&state, zeroA0.data(), 0, nullptr, memory.data()), ippStsIIROrderErr);
    const std::vector<Ipp32f> taps{0.5f, 0.5f, 1.0f, 0.0f};
    const std::vector<Ipp32f> delay{2.0f};
    ASSERT_EQ(ippsIIRInit_32f(&state, taps.data(), 1, delay.data(), memory.data()), ippStsNoErr);
    std::vector<Ipp32f> x{1.0f, 0.0f};
    EXPECT_EQ(ippsIIR_32f(x.data(), x.data(), 0, state), ippStsSizeErr);
    ASSERT_EQ(ippsIIR_32f(x.data(), x.data(), 2, state), ippStsNoErr);
    EXPECT_EQ(x[0], 2.5f);  // 0.5 x 1 + the delay line's 2
    EXPECT_EQ(x[1], 0.5f);
    EXPECT_EQ(ippsIIR_32f(x.data(), x.data(), 2, reinterpret_cast<IppsIIRState_32f*>(memory.data() + 4000)),
              ippStsContextMatchErr);
}

}  // namespace
