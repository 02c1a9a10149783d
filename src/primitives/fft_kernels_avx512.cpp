// The FFT passes on four complex doubles per 512-bit register. The arithmetic
// is that of the AVX2 passes; passes too short to fill a register (fewer
// than four butterflies per twiddle or per stride) are left to them.
#include <immintrin.h>

#include "dispatch_row.h"
#include "fft_kernels.h"

namespace qor_prim {
namespace {

// The masked forms of the permutes write every lane: the plain ones make
// GCC 12 warn of an undefined source.
struct Vec {
    using T = __m512d;
    static constexpr int kComplex = 4;
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Load(const Ipp64fc* p) { return _mm512_loadu_pd(&p->re); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static void Store(Ipp64fc* p, T v) { _mm512_storeu_pd(&p->re, v); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Broadcast(double v) { return _mm512_set1_pd(v); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Add(T a, T b) { return _mm512_add_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Sub(T a, T b) { return _mm512_sub_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Mul(T a, T b) { return _mm512_mul_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T FmAddSub(T a, T b, T c) { return _mm512_fmaddsub_pd(a, b, c); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T FmSubAdd(T a, T b, T c) { return _mm512_fmsubadd_pd(a, b, c); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T SwapParts(T v) { return _mm512_mask_permute_pd(v, 0xFF, v, 0x55); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T RealParts(T v) { return _mm512_mask_movedup_pd(v, 0xFF, v); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T ImagParts(T v) { return _mm512_mask_permute_pd(v, 0xFF, v, 0xFF); }
    // The imaginary parts negated (`imaginary`), else the real parts.
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T NegateImag(T v, bool imaginary) {
        const __m512d odd = _mm512_setr_pd(0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0);
        const __m512d even = _mm512_setr_pd(-0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0);
        return _mm512_xor_pd(v, imaginary ? odd : even);
    }
};

}  // namespace
}  // namespace qor_prim

#define QOR_VECTOR_TARGET QOR_TARGET_AVX512
#include "fft_vector_passes.h"

namespace qor_prim {
namespace {

// Two complex values of a, chosen by Select, then two of b.
template <int Select>
QOR_TARGET_AVX512 QOR_ALWAYS_INLINE __m512d PickPairs(__m512d a, __m512d b) {
    return _mm512_mask_shuffle_f64x2(a, 0xFF, a, b, Select);
}

// The first pass (stride 1): four neighbouring p share a register, and the
// four outputs of each p are regrouped by a 4 x 4 transpose of complex values.
template <bool Inverse>
QOR_TARGET_AVX512 void Radix4Stride1(int n, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    for (int p = 0; p < m; p += 4) {
        const __m512d a = Vec::Load(x + p), b = Vec::Load(x + p + m);
        const __m512d c = Vec::Load(x + p + 2 * m), d = Vec::Load(x + p + 3 * m);
        const Four f = Butterfly<Inverse>(a, b, c, d);
        const __m512d y1 = TwiddleLoaded<Inverse>(f.y1, Vec::Load(w + p));
        const __m512d y2 = TwiddleLoaded<Inverse>(f.y2, Vec::Load(w + m + p));
        const __m512d y3 = TwiddleLoaded<Inverse>(f.y3, Vec::Load(w + 2 * m + p));
        const __m512d t0 = PickPairs<kEven>(f.y0, y1), t1 = PickPairs<kOdd>(f.y0, y1);
        const __m512d t2 = PickPairs<kEven>(y2, y3), t3 = PickPairs<kOdd>(y2, y3);
        Ipp64fc* out = y + 4 * p;
        Vec::Store(out, PickPairs<kEven>(t0, t2));
        Vec::Store(out + 4, PickPairs<kEven>(t1, t3));
        Vec::Store(out + 8, PickPairs<kOdd>(t0, t2));
        Vec::Store(out + 12, PickPairs<kOdd>(t1, t3));
    }
}

QOR_TARGET_AVX512 void Radix4Pass(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, bool inverse) {
    if (s == 1 && n >= 16) {
        inverse ? Radix4Stride1<true>(n, x, y, w) : Radix4Stride1<false>(n, x, y, w);
    } else if (s >= 4) {
        inverse ? Radix4Strided<true>(n, s, x, y, w) : Radix4Strided<false>(n, s, x, y, w);
    } else {
        kFftKernelsAvx2.radix4(n, s, x, y, w, inverse);
    }
}

// Two passes in one sweep. The first pass's butterflies at p, p + n / 16,
// p + n / 8 and p + 3 n / 16 feed, output by output, the second pass's
// butterfly at p: sixteen inputs in, sixteen outputs out, all in registers.
// Inputs x[q + s (p + (k + 4 j) n / 16)]; outputs y[q + s (16 p + 4 l2 + l)].
template <bool Inverse>
QOR_TARGET_AVX512 void Radix16Strided(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w,
                                      const Ipp64fc* w2) {
    const int m = n / 4, m2 = n / 16;
    const long s2 = static_cast<long>(s) * m2;
    for (int p = 0; p < m2; ++p) {
        const Ipp64fc* xp = x + static_cast<long>(s) * p;
        Ipp64fc* yp = y + 16L * s * p;
        for (int q = 0; q < s; q += 4) {
            __m512d r[4][4];  // [k][l]: output l of the first pass's butterfly at p + k m2
            for (int k = 0; k < 4; ++k) {
                const Ipp64fc* xk = xp + q + k * s2;
                const Four f = Butterfly<Inverse>(Vec::Load(xk), Vec::Load(xk + 4 * s2),
                                                  Vec::Load(xk + 8 * s2), Vec::Load(xk + 12 * s2));
                const Ipp64fc* wk = w + p + k * m2;
                r[k][0] = f.y0;
                r[k][1] = Twiddle<Inverse>(f.y1, Vec::Broadcast(wk[0].re), Vec::Broadcast(wk[0].im));
                r[k][2] = Twiddle<Inverse>(f.y2, Vec::Broadcast(wk[m].re), Vec::Broadcast(wk[m].im));
                r[k][3] = Twiddle<Inverse>(f.y3, Vec::Broadcast(wk[2 * m].re), Vec::Broadcast(wk[2 * m].im));
            }
            for (int l = 0; l < 4; ++l) {
                const Four g = Butterfly<Inverse>(r[0][l], r[1][l], r[2][l], r[3][l]);
                Ipp64fc* out = yp + q + static_cast<long>(s) * l;
                Vec::Store(out, g.y0);
                Vec::Store(out + 4L * s, Twiddle<Inverse>(g.y1, Vec::Broadcast(w2[p].re), Vec::Broadcast(w2[p].im)));
                Vec::Store(out + 8L * s,
                           Twiddle<Inverse>(g.y2, Vec::Broadcast(w2[m2 + p].re), Vec::Broadcast(w2[m2 + p].im)));
                Vec::Store(out + 12L * s,
                           Twiddle<Inverse>(g.y3, Vec::Broadcast(w2[2 * m2 + p].re), Vec::Broadcast(w2[2 * m2 + p].im)));
            }
        }
    }
}

// The same for stride 1, four neighbouring p per register; the sixteen
// outputs of each p are regrouped by 4 x 4 transposes of complex values.
// `in` gives the inputs (PlainInput, or a window's product on the way in).
template <bool Inverse, typename Input>
QOR_TARGET_AVX512 void Radix16Stride1(int n, Input in, Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2) {
    const int m = n / 4, m2 = n / 16;
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    for (int p = 0; p < m2; p += 4) {
        __m512d r[4][4];
        for (int k = 0; k < 4; ++k) {
            const long xk = p + k * m2;
            const Four f = Butterfly<Inverse>(in(xk), in(xk + 4 * m2), in(xk + 8 * m2), in(xk + 12 * m2));
            const Ipp64fc* wk = w + p + k * m2;
            r[k][0] = f.y0;
            r[k][1] = TwiddleLoaded<Inverse>(f.y1, Vec::Load(wk));
            r[k][2] = TwiddleLoaded<Inverse>(f.y2, Vec::Load(wk + m));
            r[k][3] = TwiddleLoaded<Inverse>(f.y3, Vec::Load(wk + 2 * m));
        }
        __m512d g[4][4];  // [l2][l]
        for (int l = 0; l < 4; ++l) {
            const Four b = Butterfly<Inverse>(r[0][l], r[1][l], r[2][l], r[3][l]);
            g[0][l] = b.y0;
            g[1][l] = TwiddleLoaded<Inverse>(b.y1, Vec::Load(w2 + p));
            g[2][l] = TwiddleLoaded<Inverse>(b.y2, Vec::Load(w2 + m2 + p));
            g[3][l] = TwiddleLoaded<Inverse>(b.y3, Vec::Load(w2 + 2 * m2 + p));
        }
        for (int l2 = 0; l2 < 4; ++l2) {
            const __m512d* v = g[l2];
            const __m512d t0 = PickPairs<kEven>(v[0], v[1]), t1 = PickPairs<kOdd>(v[0], v[1]);
            const __m512d t2 = PickPairs<kEven>(v[2], v[3]), t3 = PickPairs<kOdd>(v[2], v[3]);
            Ipp64fc* out = y + 16 * p + 4 * l2;
            Vec::Store(out, PickPairs<kEven>(t0, t2));
            Vec::Store(out + 16, PickPairs<kEven>(t1, t3));
            Vec::Store(out + 32, PickPairs<kOdd>(t0, t2));
            Vec::Store(out + 48, PickPairs<kOdd>(t1, t3));
        }
    }
}

QOR_TARGET_AVX512 void Radix4Twice(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2,
                                   bool inverse) {
    if (s >= 4) {
        inverse ? Radix16Strided<true>(n, s, x, y, w, w2) : Radix16Strided<false>(n, s, x, y, w, w2);
    } else if (s == 1 && n >= 64) {
        inverse ? Radix16Stride1<true>(n, PlainInput{x}, y, w, w2) : Radix16Stride1<false>(n, PlainInput{x}, y, w, w2);
    } else {
        // Too short for the registers: the two passes through a small buffer.
        Ipp64fc between[64];
        Radix4Pass(n, s, x, between, w, inverse);
        Radix4Pass(n / 4, 4 * s, between, y, w2, inverse);
    }
}

QOR_TARGET_AVX512 void Radix4TwiceWindowed(int n, const Ipp64fc* x, const Ipp64fc* window, bool conjugate,
                                           Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2) {
    if (conjugate) {
        Radix16Stride1<false>(n, ConjWindowedInput{x, window}, y, w, w2);
    } else {
        Radix16Stride1<false>(n, WindowedInput{x, window}, y, w, w2);
    }
}

// Sixteen points at once only here: with half the registers, the spilling
// costs more than the sweep it saves.
QOR_TARGET_AVX512 void LastSixteenPasses(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse,
                                         const Ipp64fc* times) {
    LastTwoPasses(16, s, x, y, scale, inverse, times);
}

QOR_TARGET_AVX512 void Radix4LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    if (s < 4) {
        kFftKernelsAvx2.radix4Last(s, x, y, scale, inverse);
        return;
    }
    const Scaled finish{Vec::Broadcast(scale)};
    inverse ? Radix4LastStrided<true>(s, x, y, finish) : Radix4LastStrided<false>(s, x, y, finish);
}

QOR_TARGET_AVX512 void Radix2LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    if (s < 4) {
        kFftKernelsAvx2.radix2Last(s, x, y, scale);
        return;
    }
    Radix2LastStrided(s, x, y, Scaled{Vec::Broadcast(scale)});
}

QOR_TARGET_AVX512 void TwiddleMultiply(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    const int i = TwiddleMultiplyWhole(a, w, d, length, inverse);
    if (i < length) kFftKernelsAvx2.twiddle(a + i, w + i, d + i, length - i, inverse);
}

// Tiles of 4 x 4 complex values, each turned by the regrouping of the first pass.
QOR_TARGET_AVX512 void Transpose(const Ipp64fc* src, long srcRow, Ipp64fc* dst, long dstRow, int rows, int cols,
                                 double scale) {
    if (rows % 4 != 0 || cols % 4 != 0) {
        TransposeGeneric(src, srcRow, dst, dstRow, rows, cols, scale);
        return;
    }
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    const __m512d k = Vec::Broadcast(scale);
    for (int i = 0; i < rows; i += 4) {
        const Ipp64fc* in = src + i * srcRow;
        for (int j = 0; j < cols; j += 4) {
            const __m512d a = Vec::Mul(Vec::Load(in + j), k), b = Vec::Mul(Vec::Load(in + srcRow + j), k);
            const __m512d c = Vec::Mul(Vec::Load(in + 2 * srcRow + j), k);
            const __m512d d = Vec::Mul(Vec::Load(in + 3 * srcRow + j), k);
            const __m512d t0 = PickPairs<kEven>(a, b), t1 = PickPairs<kOdd>(a, b);
            const __m512d t2 = PickPairs<kEven>(c, d), t3 = PickPairs<kOdd>(c, d);
            Ipp64fc* out = dst + j * dstRow + i;
            Vec::Store(out, PickPairs<kEven>(t0, t2));
            Vec::Store(out + dstRow, PickPairs<kEven>(t1, t3));
            Vec::Store(out + 2 * dstRow, PickPairs<kOdd>(t0, t2));
            Vec::Store(out + 3 * dstRow, PickPairs<kOdd>(t1, t3));
        }
    }
}

// Sixteen points: the twiddled pass's four butterflies side by side, their
// outputs regrouped by one 4 x 4 transpose into the last pass's inputs.
template <bool Inverse>
QOR_TARGET_AVX512 void Whole16(const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, double scale) {
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    const Four f = Butterfly<Inverse>(Vec::Load(x), Vec::Load(x + 4), Vec::Load(x + 8), Vec::Load(x + 12));
    const __m512d y1 = TwiddleLoaded<Inverse>(f.y1, Vec::Load(w));
    const __m512d y2 = TwiddleLoaded<Inverse>(f.y2, Vec::Load(w + 4));
    const __m512d y3 = TwiddleLoaded<Inverse>(f.y3, Vec::Load(w + 8));
    const __m512d t0 = PickPairs<kEven>(f.y0, y1), t1 = PickPairs<kOdd>(f.y0, y1);
    const __m512d t2 = PickPairs<kEven>(y2, y3), t3 = PickPairs<kOdd>(y2, y3);
    const Four g = Butterfly<Inverse>(PickPairs<kEven>(t0, t2), PickPairs<kEven>(t1, t3), PickPairs<kOdd>(t0, t2),
                                      PickPairs<kOdd>(t1, t3));
    const __m512d k = Vec::Broadcast(scale);
    Vec::Store(y, Vec::Mul(g.y0, k));
    Vec::Store(y + 4, Vec::Mul(g.y1, k));
    Vec::Store(y + 8, Vec::Mul(g.y2, k));
    Vec::Store(y + 12, Vec::Mul(g.y3, k));
}

// Eight points: a radix-2 step between the halves, the odd half turned by
// W8^i; then each half's four-point transform side by side, its two steps
// across 128-bit lanes. Outputs in order: the even ones from the first half.
template <bool Inverse>
QOR_TARGET_AVX512 void Whole8(const Ipp64fc* x, Ipp64fc* y, double scale) {
    constexpr double kC = 0.70710678118654752440;
    alignas(64) static const Ipp64fc kEighths[4] = {{1.0, 0.0}, {kC, -kC}, {0.0, -1.0}, {-kC, -kC}};
    alignas(64) static const Ipp64fc kQuarters[4] = {{1.0, 0.0}, {0.0, -1.0}, {1.0, 0.0}, {0.0, -1.0}};
    constexpr int kLow = _MM_SHUFFLE(1, 0, 1, 0), kHigh = _MM_SHUFFLE(3, 2, 3, 2);
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    const __m512d a = Vec::Load(x), b = Vec::Load(x + 4);
    const __m512d sum = Vec::Add(a, b);
    const __m512d difference = TwiddleLoaded<Inverse>(Vec::Sub(a, b), Vec::Load(kEighths));
    const __m512d p = PickPairs<kLow>(sum, difference), q = PickPairs<kHigh>(sum, difference);
    const __m512d u = Vec::Add(p, q);
    const __m512d v = TwiddleLoaded<Inverse>(Vec::Sub(p, q), Vec::Load(kQuarters));
    const __m512d e = PickPairs<kEven>(u, v), f = PickPairs<kOdd>(u, v);
    const __m512d k = Vec::Broadcast(scale);
    Vec::Store(y, Vec::Mul(Vec::Add(e, f), k));
    Vec::Store(y + 4, Vec::Mul(Vec::Sub(e, f), k));
}

QOR_TARGET_AVX512 void Whole8Pass(const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    inverse ? Whole8<true>(x, y, scale) : Whole8<false>(x, y, scale);
}

QOR_TARGET_AVX512 void Whole16Pass(const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, double scale, bool inverse) {
    inverse ? Whole16<true>(x, y, w, scale) : Whole16<false>(x, y, w, scale);
}

}  // namespace

const FftKernels kFftKernelsAvx512 = {Radix4Pass,      Radix4LastPass,  Radix2LastPass, TwiddleMultiply,
                                       Radix4Twice,     Radix4LastTimes, Radix2LastTimes, Transpose,
                                       ConjTimes,       BlockTwiddle,    Whole16Pass,     LastEightPasses,
                                       LastSixteenPasses, Radix4TwiceWindowed, Whole8Pass};

}  // namespace qor_prim
