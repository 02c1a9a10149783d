// The FFT passes on four complex doubles per 512-bit register. The arithmetic
// is that of the AVX2 passes; passes too short to fill a register (fewer
// than four butterflies per twiddle or per stride) are left to them.
#include <immintrin.h>

#include "dispatch_row.h"
#include "fft_kernels.h"

namespace qor_prim {

namespace {

// The masked forms with every lane written: the plain ones leave GCC 12
// warning of an undefined source.
QOR_TARGET_AVX512 inline __m512d SwapParts(__m512d v) { return _mm512_mask_permute_pd(v, 0xFF, v, 0x55); }
QOR_TARGET_AVX512 inline __m512d RealParts(__m512d v) { return _mm512_mask_movedup_pd(v, 0xFF, v); }
QOR_TARGET_AVX512 inline __m512d ImagParts(__m512d v) { return _mm512_mask_permute_pd(v, 0xFF, v, 0xFF); }
// Two complex values of a, chosen by Select, then two of b.
template <int Select>
QOR_TARGET_AVX512 inline __m512d PickPairs(__m512d a, __m512d b) {
    return _mm512_mask_shuffle_f64x2(a, 0xFF, a, b, Select);
}

// v x (wr + j wi) with wr, wi broadcast over each complex; conj(w) for the inverse.
template <bool Inverse>
QOR_TARGET_AVX512 inline __m512d Twiddle(__m512d v, __m512d wr, __m512d wi) {
    const __m512d cross = _mm512_mul_pd(SwapParts(v), wi);
    return Inverse ? _mm512_fmsubadd_pd(v, wr, cross) : _mm512_fmaddsub_pd(v, wr, cross);
}

template <bool Inverse>
QOR_TARGET_AVX512 inline __m512d TwiddleLoaded(__m512d v, __m512d w) {
    return Twiddle<Inverse>(v, RealParts(w), ImagParts(w));
}

// -j u forward, +j u inverse.
template <bool Inverse>
QOR_TARGET_AVX512 inline __m512d RotateQuarter(__m512d u) {
    const __m512d sign = Inverse ? _mm512_setr_pd(-0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0)
                                 : _mm512_setr_pd(0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0);
    return _mm512_xor_pd(SwapParts(u), sign);
}

struct Four {
    __m512d y0, y1, y2, y3;
};

template <bool Inverse>
QOR_TARGET_AVX512 inline Four Butterfly(__m512d a, __m512d b, __m512d c, __m512d d) {
    const __m512d t0 = _mm512_add_pd(a, c), t1 = _mm512_sub_pd(a, c);
    const __m512d t2 = _mm512_add_pd(b, d), t3 = RotateQuarter<Inverse>(_mm512_sub_pd(b, d));
    return {_mm512_add_pd(t0, t2), _mm512_add_pd(t1, t3), _mm512_sub_pd(t0, t2), _mm512_sub_pd(t1, t3)};
}

inline const double* D(const Ipp64fc* p) { return &p->re; }
inline double* D(Ipp64fc* p) { return &p->re; }

// The first pass (stride 1): four neighbouring p share a register, and the
// four outputs of each p are regrouped by a 4 x 4 transpose of complex values.
template <bool Inverse>
QOR_TARGET_AVX512 void Radix4Stride1(int n, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    for (int p = 0; p < m; p += 4) {
        const __m512d a = _mm512_loadu_pd(D(x + p)), b = _mm512_loadu_pd(D(x + p + m));
        const __m512d c = _mm512_loadu_pd(D(x + p + 2 * m)), d = _mm512_loadu_pd(D(x + p + 3 * m));
        const Four f = Butterfly<Inverse>(a, b, c, d);
        const __m512d y1 = TwiddleLoaded<Inverse>(f.y1, _mm512_loadu_pd(D(w + p)));
        const __m512d y2 = TwiddleLoaded<Inverse>(f.y2, _mm512_loadu_pd(D(w + m + p)));
        const __m512d y3 = TwiddleLoaded<Inverse>(f.y3, _mm512_loadu_pd(D(w + 2 * m + p)));
        const __m512d t0 = PickPairs<kEven>(f.y0, y1), t1 = PickPairs<kOdd>(f.y0, y1);
        const __m512d t2 = PickPairs<kEven>(y2, y3), t3 = PickPairs<kOdd>(y2, y3);
        double* out = D(y + 4 * p);
        _mm512_storeu_pd(out, PickPairs<kEven>(t0, t2));
        _mm512_storeu_pd(out + 8, PickPairs<kEven>(t1, t3));
        _mm512_storeu_pd(out + 16, PickPairs<kOdd>(t0, t2));
        _mm512_storeu_pd(out + 24, PickPairs<kOdd>(t1, t3));
    }
}

// Later passes (stride a multiple of 4): one twiddle per p, broadcast.
template <bool Inverse>
QOR_TARGET_AVX512 void Radix4Strided(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    const long sm = static_cast<long>(s) * m;
    for (int p = 0; p < m; ++p) {
        const __m512d w1r = _mm512_set1_pd(w[p].re), w1i = _mm512_set1_pd(w[p].im);
        const __m512d w2r = _mm512_set1_pd(w[m + p].re), w2i = _mm512_set1_pd(w[m + p].im);
        const __m512d w3r = _mm512_set1_pd(w[2 * m + p].re), w3i = _mm512_set1_pd(w[2 * m + p].im);
        const Ipp64fc* xp = x + static_cast<long>(s) * p;
        Ipp64fc* yp = y + 4L * s * p;
        for (int q = 0; q < s; q += 4) {
            const __m512d a = _mm512_loadu_pd(D(xp + q)), b = _mm512_loadu_pd(D(xp + q + sm));
            const __m512d c = _mm512_loadu_pd(D(xp + q + 2 * sm)), d = _mm512_loadu_pd(D(xp + q + 3 * sm));
            const Four f = Butterfly<Inverse>(a, b, c, d);
            _mm512_storeu_pd(D(yp + q), f.y0);
            _mm512_storeu_pd(D(yp + q + s), Twiddle<Inverse>(f.y1, w1r, w1i));
            _mm512_storeu_pd(D(yp + q + 2 * s), Twiddle<Inverse>(f.y2, w2r, w2i));
            _mm512_storeu_pd(D(yp + q + 3 * s), Twiddle<Inverse>(f.y3, w3r, w3i));
        }
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
                const Four f = Butterfly<Inverse>(_mm512_loadu_pd(D(xk)), _mm512_loadu_pd(D(xk + 4 * s2)),
                                                  _mm512_loadu_pd(D(xk + 8 * s2)), _mm512_loadu_pd(D(xk + 12 * s2)));
                const Ipp64fc* wk = w + p + k * m2;
                r[k][0] = f.y0;
                r[k][1] = Twiddle<Inverse>(f.y1, _mm512_set1_pd(wk[0].re), _mm512_set1_pd(wk[0].im));
                r[k][2] = Twiddle<Inverse>(f.y2, _mm512_set1_pd(wk[m].re), _mm512_set1_pd(wk[m].im));
                r[k][3] = Twiddle<Inverse>(f.y3, _mm512_set1_pd(wk[2 * m].re), _mm512_set1_pd(wk[2 * m].im));
            }
            for (int l = 0; l < 4; ++l) {
                const Four g = Butterfly<Inverse>(r[0][l], r[1][l], r[2][l], r[3][l]);
                Ipp64fc* out = yp + q + static_cast<long>(s) * l;
                _mm512_storeu_pd(D(out), g.y0);
                _mm512_storeu_pd(D(out + 4L * s),
                                 Twiddle<Inverse>(g.y1, _mm512_set1_pd(w2[p].re), _mm512_set1_pd(w2[p].im)));
                _mm512_storeu_pd(D(out + 8L * s), Twiddle<Inverse>(g.y2, _mm512_set1_pd(w2[m2 + p].re),
                                                                   _mm512_set1_pd(w2[m2 + p].im)));
                _mm512_storeu_pd(D(out + 12L * s), Twiddle<Inverse>(g.y3, _mm512_set1_pd(w2[2 * m2 + p].re),
                                                                    _mm512_set1_pd(w2[2 * m2 + p].im)));
            }
        }
    }
}

// The same for stride 1, four neighbouring p per register; the sixteen
// outputs of each p are regrouped by 4 x 4 transposes of complex values.
template <bool Inverse>
QOR_TARGET_AVX512 void Radix16Stride1(int n, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2) {
    const int m = n / 4, m2 = n / 16;
    constexpr int kEven = _MM_SHUFFLE(2, 0, 2, 0), kOdd = _MM_SHUFFLE(3, 1, 3, 1);
    for (int p = 0; p < m2; p += 4) {
        __m512d r[4][4];
        for (int k = 0; k < 4; ++k) {
            const Ipp64fc* xk = x + p + k * m2;
            const Four f = Butterfly<Inverse>(_mm512_loadu_pd(D(xk)), _mm512_loadu_pd(D(xk + 4 * m2)),
                                              _mm512_loadu_pd(D(xk + 8 * m2)), _mm512_loadu_pd(D(xk + 12 * m2)));
            const Ipp64fc* wk = w + p + k * m2;
            r[k][0] = f.y0;
            r[k][1] = TwiddleLoaded<Inverse>(f.y1, _mm512_loadu_pd(D(wk)));
            r[k][2] = TwiddleLoaded<Inverse>(f.y2, _mm512_loadu_pd(D(wk + m)));
            r[k][3] = TwiddleLoaded<Inverse>(f.y3, _mm512_loadu_pd(D(wk + 2 * m)));
        }
        __m512d g[4][4];  // [l2][l]
        for (int l = 0; l < 4; ++l) {
            const Four b = Butterfly<Inverse>(r[0][l], r[1][l], r[2][l], r[3][l]);
            g[0][l] = b.y0;
            g[1][l] = TwiddleLoaded<Inverse>(b.y1, _mm512_loadu_pd(D(w2 + p)));
            g[2][l] = TwiddleLoaded<Inverse>(b.y2, _mm512_loadu_pd(D(w2 + m2 + p)));
            g[3][l] = TwiddleLoaded<Inverse>(b.y3, _mm512_loadu_pd(D(w2 + 2 * m2 + p)));
        }
        for (int l2 = 0; l2 < 4; ++l2) {
            const __m512d* v = g[l2];
            const __m512d t0 = PickPairs<kEven>(v[0], v[1]), t1 = PickPairs<kOdd>(v[0], v[1]);
            const __m512d t2 = PickPairs<kEven>(v[2], v[3]), t3 = PickPairs<kOdd>(v[2], v[3]);
            double* out = D(y + 16 * p + 4 * l2);
            _mm512_storeu_pd(out, PickPairs<kEven>(t0, t2));
            _mm512_storeu_pd(out + 32, PickPairs<kEven>(t1, t3));
            _mm512_storeu_pd(out + 64, PickPairs<kOdd>(t0, t2));
            _mm512_storeu_pd(out + 96, PickPairs<kOdd>(t1, t3));
        }
    }
}

QOR_TARGET_AVX512 void Radix4Twice(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, const Ipp64fc* w2,
                                   bool inverse) {
    if (s >= 4) {
        inverse ? Radix16Strided<true>(n, s, x, y, w, w2) : Radix16Strided<false>(n, s, x, y, w, w2);
    } else if (s == 1 && n >= 64) {
        inverse ? Radix16Stride1<true>(n, x, y, w, w2) : Radix16Stride1<false>(n, x, y, w, w2);
    } else {
        // Too short for the registers: the two passes through a small buffer.
        Ipp64fc between[64];
        Radix4Pass(n, s, x, between, w, inverse);
        Radix4Pass(n / 4, 4 * s, between, y, w2, inverse);
    }
}

template <bool Inverse>
QOR_TARGET_AVX512 void Radix4Last(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    const __m512d k = _mm512_set1_pd(scale);
    for (int q = 0; q < s; q += 4) {
        const __m512d a = _mm512_loadu_pd(D(x + q)), b = _mm512_loadu_pd(D(x + q + s));
        const __m512d c = _mm512_loadu_pd(D(x + q + 2 * s)), d = _mm512_loadu_pd(D(x + q + 3 * s));
        const Four f = Butterfly<Inverse>(a, b, c, d);
        _mm512_storeu_pd(D(y + q), _mm512_mul_pd(f.y0, k));
        _mm512_storeu_pd(D(y + q + s), _mm512_mul_pd(f.y1, k));
        _mm512_storeu_pd(D(y + q + 2 * s), _mm512_mul_pd(f.y2, k));
        _mm512_storeu_pd(D(y + q + 3 * s), _mm512_mul_pd(f.y3, k));
    }
}

QOR_TARGET_AVX512 void Radix4LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    if (s < 4) {
        kFftKernelsAvx2.radix4Last(s, x, y, scale, inverse);
        return;
    }
    inverse ? Radix4Last<true>(s, x, y, scale) : Radix4Last<false>(s, x, y, scale);
}

QOR_TARGET_AVX512 void Radix2LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    if (s < 4) {
        kFftKernelsAvx2.radix2Last(s, x, y, scale);
        return;
    }
    const __m512d k = _mm512_set1_pd(scale);
    for (int q = 0; q < s; q += 4) {
        const __m512d a = _mm512_loadu_pd(D(x + q)), b = _mm512_loadu_pd(D(x + q + s));
        _mm512_storeu_pd(D(y + q), _mm512_mul_pd(_mm512_add_pd(a, b), k));
        _mm512_storeu_pd(D(y + q + s), _mm512_mul_pd(_mm512_sub_pd(a, b), k));
    }
}

QOR_TARGET_AVX512 inline __m512d Times(__m512d v, const Ipp64fc* h) {
    return TwiddleLoaded<false>(v, _mm512_loadu_pd(D(h)));
}

QOR_TARGET_AVX512 void Radix4LastTimes(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h) {
    for (int q = 0; q < s; q += 4) {
        const __m512d a = _mm512_loadu_pd(D(x + q)), b = _mm512_loadu_pd(D(x + q + s));
        const __m512d c = _mm512_loadu_pd(D(x + q + 2 * s)), d = _mm512_loadu_pd(D(x + q + 3 * s));
        const Four f = Butterfly<false>(a, b, c, d);
        _mm512_storeu_pd(D(y + q), Times(f.y0, h + q));
        _mm512_storeu_pd(D(y + q + s), Times(f.y1, h + q + s));
        _mm512_storeu_pd(D(y + q + 2 * s), Times(f.y2, h + q + 2 * s));
        _mm512_storeu_pd(D(y + q + 3 * s), Times(f.y3, h + q + 3 * s));
    }
}

QOR_TARGET_AVX512 void Radix2LastTimes(int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* h) {
    for (int q = 0; q < s; q += 4) {
        const __m512d a = _mm512_loadu_pd(D(x + q)), b = _mm512_loadu_pd(D(x + q + s));
        _mm512_storeu_pd(D(y + q), Times(_mm512_add_pd(a, b), h + q));
        _mm512_storeu_pd(D(y + q + s), Times(_mm512_sub_pd(a, b), h + q + s));
    }
}

QOR_TARGET_AVX512 void TwiddleMultiply(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m512d v = _mm512_loadu_pd(D(a + i)), t = _mm512_loadu_pd(D(w + i));
        _mm512_storeu_pd(D(d + i), inverse ? TwiddleLoaded<true>(v, t) : TwiddleLoaded<false>(v, t));
    }
    if (i < length) kFftKernelsAvx2.twiddle(a + i, w + i, d + i, length - i, inverse);
}

}  // namespace

const FftKernels kFftKernelsAvx512 = {Radix4Pass, Radix4LastPass, Radix2LastPass, TwiddleMultiply, Radix4Twice,
                                       Radix4LastTimes, Radix2LastTimes};

}  // namespace qor_prim
