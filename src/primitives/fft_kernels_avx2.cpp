// The FFT passes on two complex doubles per AVX2 register. The arithmetic is
// that of the generic passes, with fused multiply-adds in the twiddle products.
#include <immintrin.h>

#include "dispatch_row.h"
#include "fft_kernels.h"

namespace qor_prim {
namespace {

struct Vec {
    using T = __m256d;
    static constexpr int kComplex = 2;
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Load(const Ipp64fc* p) { return _mm256_loadu_pd(&p->re); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static void Store(Ipp64fc* p, T v) { _mm256_storeu_pd(&p->re, v); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Broadcast(double v) { return _mm256_set1_pd(v); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Add(T a, T b) { return _mm256_add_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Sub(T a, T b) { return _mm256_sub_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Mul(T a, T b) { return _mm256_mul_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T FmAddSub(T a, T b, T c) { return _mm256_fmaddsub_pd(a, b, c); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T FmSubAdd(T a, T b, T c) { return _mm256_fmsubadd_pd(a, b, c); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T SwapParts(T v) { return _mm256_permute_pd(v, 0x5); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T RealParts(T v) { return _mm256_movedup_pd(v); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T ImagParts(T v) { return _mm256_permute_pd(v, 0xF); }
    // The imaginary parts negated (`imaginary`), else the real parts.
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T NegateImag(T v, bool imaginary) {
        return _mm256_xor_pd(v, imaginary ? _mm256_setr_pd(0.0, -0.0, 0.0, -0.0) : _mm256_setr_pd(-0.0, 0.0, -0.0, 0.0));
    }
};

}  // namespace
}  // namespace qor_prim

#define QOR_VECTOR_TARGET QOR_TARGET_AVX2
#include "fft_vector_passes.h"

namespace qor_prim {
namespace {

// The first pass (stride 1): two neighbouring p share a register, and the
// four outputs of each p are regrouped by 128-bit lanes.
template <bool Inverse>
QOR_TARGET_AVX2 void Radix4Stride1(int n, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    for (int p = 0; p < m; p += 2) {
        const Four f = Butterfly<Inverse>(Vec::Load(x + p), Vec::Load(x + p + m), Vec::Load(x + p + 2 * m),
                                          Vec::Load(x + p + 3 * m));
        const __m256d y1 = TwiddleLoaded<Inverse>(f.y1, Vec::Load(w + p));
        const __m256d y2 = TwiddleLoaded<Inverse>(f.y2, Vec::Load(w + m + p));
        const __m256d y3 = TwiddleLoaded<Inverse>(f.y3, Vec::Load(w + 2 * m + p));
        Ipp64fc* out = y + 4 * p;
        Vec::Store(out, _mm256_permute2f128_pd(f.y0, y1, 0x20));
        Vec::Store(out + 2, _mm256_permute2f128_pd(y2, y3, 0x20));
        Vec::Store(out + 4, _mm256_permute2f128_pd(f.y0, y1, 0x31));
        Vec::Store(out + 6, _mm256_permute2f128_pd(y2, y3, 0x31));
    }
}

QOR_TARGET_AVX2 void Radix4Pass(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, bool inverse) {
    if (s == 1) {
        inverse ? Radix4Stride1<true>(n, x, y, w) : Radix4Stride1<false>(n, x, y, w);
    } else {
        inverse ? Radix4Strided<true>(n, s, x, y, w) : Radix4Strided<false>(n, s, x, y, w);
    }
}

QOR_TARGET_AVX2 void Radix4LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    if (s == 1) {
        kFftKernelsGeneric.radix4Last(s, x, y, scale, inverse);
        return;
    }
    const Scaled finish{Vec::Broadcast(scale)};
    inverse ? Radix4LastStrided<true>(s, x, y, finish) : Radix4LastStrided<false>(s, x, y, finish);
}

QOR_TARGET_AVX2 void Radix2LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    if (s == 1) {
        kFftKernelsGeneric.radix2Last(s, x, y, scale);
        return;
    }
    Radix2LastStrided(s, x, y, Scaled{Vec::Broadcast(scale)});
}

QOR_TARGET_AVX2 void TwiddleMultiply(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    const int i = TwiddleMultiplyWhole(a, w, d, length, inverse);
    if (i < length) kFftKernelsGeneric.twiddle(a + i, w + i, d + i, length - i, inverse);
}

}  // namespace

const FftKernels kFftKernelsAvx2 = {Radix4Pass,      Radix4LastPass,   Radix2LastPass,
                                     TwiddleMultiply, nullptr,          Radix4LastTimes,
                                     Radix2LastTimes, TransposeGeneric, ConjTimes,
                                     BlockTwiddle,    nullptr,          LastEightPasses,
                                     nullptr,         nullptr,          nullptr};

}  // namespace qor_prim
