// The FFT passes on two complex doubles per AVX2 register. The arithmetic is
// that of the generic passes, with fused multiply-adds in the twiddle products.
#include <immintrin.h>

#include "dispatch_row.h"
#include "fft_kernels.h"

namespace qor_prim {

namespace {

// v x (wr + j wi) with wr, wi broadcast over each complex; conj(w) for the inverse.
template <bool Inverse>
QOR_TARGET_AVX2 inline __m256d Twiddle(__m256d v, __m256d wr, __m256d wi) {
    const __m256d cross = _mm256_mul_pd(_mm256_permute_pd(v, 0x5), wi);
    return Inverse ? _mm256_fmsubadd_pd(v, wr, cross) : _mm256_fmaddsub_pd(v, wr, cross);
}

template <bool Inverse>
QOR_TARGET_AVX2 inline __m256d TwiddleLoaded(__m256d v, __m256d w) {
    return Twiddle<Inverse>(v, _mm256_movedup_pd(w), _mm256_permute_pd(w, 0xF));
}

// -j u forward, +j u inverse.
template <bool Inverse>
QOR_TARGET_AVX2 inline __m256d RotateQuarter(__m256d u) {
    const __m256d sign = Inverse ? _mm256_setr_pd(-0.0, 0.0, -0.0, 0.0) : _mm256_setr_pd(0.0, -0.0, 0.0, -0.0);
    return _mm256_xor_pd(_mm256_permute_pd(u, 0x5), sign);
}

struct Four {
    __m256d y0, y1, y2, y3;
};

template <bool Inverse>
QOR_TARGET_AVX2 inline Four Butterfly(__m256d a, __m256d b, __m256d c, __m256d d) {
    const __m256d t0 = _mm256_add_pd(a, c), t1 = _mm256_sub_pd(a, c);
    const __m256d t2 = _mm256_add_pd(b, d), t3 = RotateQuarter<Inverse>(_mm256_sub_pd(b, d));
    return {_mm256_add_pd(t0, t2), _mm256_add_pd(t1, t3), _mm256_sub_pd(t0, t2), _mm256_sub_pd(t1, t3)};
}

inline const double* D(const Ipp64fc* p) { return &p->re; }
inline double* D(Ipp64fc* p) { return &p->re; }

// The first pass (stride 1): two neighbouring p share a register, and the
// four outputs of each p are regrouped by 128-bit lanes.
template <bool Inverse>
QOR_TARGET_AVX2 void Radix4Stride1(int n, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    for (int p = 0; p < m; p += 2) {
        const __m256d a = _mm256_loadu_pd(D(x + p)), b = _mm256_loadu_pd(D(x + p + m));
        const __m256d c = _mm256_loadu_pd(D(x + p + 2 * m)), d = _mm256_loadu_pd(D(x + p + 3 * m));
        const Four f = Butterfly<Inverse>(a, b, c, d);
        const __m256d y1 = TwiddleLoaded<Inverse>(f.y1, _mm256_loadu_pd(D(w + p)));
        const __m256d y2 = TwiddleLoaded<Inverse>(f.y2, _mm256_loadu_pd(D(w + m + p)));
        const __m256d y3 = TwiddleLoaded<Inverse>(f.y3, _mm256_loadu_pd(D(w + 2 * m + p)));
        double* out = D(y + 4 * p);
        _mm256_storeu_pd(out, _mm256_permute2f128_pd(f.y0, y1, 0x20));
        _mm256_storeu_pd(out + 4, _mm256_permute2f128_pd(y2, y3, 0x20));
        _mm256_storeu_pd(out + 8, _mm256_permute2f128_pd(f.y0, y1, 0x31));
        _mm256_storeu_pd(out + 12, _mm256_permute2f128_pd(y2, y3, 0x31));
    }
}

// Later passes (stride a multiple of 2): one twiddle per p, broadcast.
template <bool Inverse>
QOR_TARGET_AVX2 void Radix4Strided(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w) {
    const int m = n / 4;
    const long sm = static_cast<long>(s) * m;
    for (int p = 0; p < m; ++p) {
        const __m256d w1r = _mm256_broadcast_sd(&w[p].re), w1i = _mm256_broadcast_sd(&w[p].im);
        const __m256d w2r = _mm256_broadcast_sd(&w[m + p].re), w2i = _mm256_broadcast_sd(&w[m + p].im);
        const __m256d w3r = _mm256_broadcast_sd(&w[2 * m + p].re), w3i = _mm256_broadcast_sd(&w[2 * m + p].im);
        const Ipp64fc* xp = x + static_cast<long>(s) * p;
        Ipp64fc* yp = y + 4L * s * p;
        for (int q = 0; q < s; q += 2) {
            const __m256d a = _mm256_loadu_pd(D(xp + q)), b = _mm256_loadu_pd(D(xp + q + sm));
            const __m256d c = _mm256_loadu_pd(D(xp + q + 2 * sm)), d = _mm256_loadu_pd(D(xp + q + 3 * sm));
            const Four f = Butterfly<Inverse>(a, b, c, d);
            _mm256_storeu_pd(D(yp + q), f.y0);
            _mm256_storeu_pd(D(yp + q + s), Twiddle<Inverse>(f.y1, w1r, w1i));
            _mm256_storeu_pd(D(yp + q + 2 * s), Twiddle<Inverse>(f.y2, w2r, w2i));
            _mm256_storeu_pd(D(yp + q + 3 * s), Twiddle<Inverse>(f.y3, w3r, w3i));
        }
    }
}

QOR_TARGET_AVX2 void Radix4Pass(int n, int s, const Ipp64fc* x, Ipp64fc* y, const Ipp64fc* w, bool inverse) {
    if (s == 1) {
        inverse ? Radix4Stride1<true>(n, x, y, w) : Radix4Stride1<false>(n, x, y, w);
    } else {
        inverse ? Radix4Strided<true>(n, s, x, y, w) : Radix4Strided<false>(n, s, x, y, w);
    }
}

template <bool Inverse>
QOR_TARGET_AVX2 void Radix4Last(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    const __m256d k = _mm256_set1_pd(scale);
    for (int q = 0; q < s; q += 2) {
        const __m256d a = _mm256_loadu_pd(D(x + q)), b = _mm256_loadu_pd(D(x + q + s));
        const __m256d c = _mm256_loadu_pd(D(x + q + 2 * s)), d = _mm256_loadu_pd(D(x + q + 3 * s));
        const Four f = Butterfly<Inverse>(a, b, c, d);
        _mm256_storeu_pd(D(y + q), _mm256_mul_pd(f.y0, k));
        _mm256_storeu_pd(D(y + q + s), _mm256_mul_pd(f.y1, k));
        _mm256_storeu_pd(D(y + q + 2 * s), _mm256_mul_pd(f.y2, k));
        _mm256_storeu_pd(D(y + q + 3 * s), _mm256_mul_pd(f.y3, k));
    }
}

QOR_TARGET_AVX2 void Radix4LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale, bool inverse) {
    if (s == 1) {
        kFftKernelsGeneric.radix4Last(s, x, y, scale, inverse);
        return;
    }
    inverse ? Radix4Last<true>(s, x, y, scale) : Radix4Last<false>(s, x, y, scale);
}

QOR_TARGET_AVX2 void Radix2LastPass(int s, const Ipp64fc* x, Ipp64fc* y, double scale) {
    if (s == 1) {
        kFftKernelsGeneric.radix2Last(s, x, y, scale);
        return;
    }
    const __m256d k = _mm256_set1_pd(scale);
    for (int q = 0; q < s; q += 2) {
        const __m256d a = _mm256_loadu_pd(D(x + q)), b = _mm256_loadu_pd(D(x + q + s));
        _mm256_storeu_pd(D(y + q), _mm256_mul_pd(_mm256_add_pd(a, b), k));
        _mm256_storeu_pd(D(y + q + s), _mm256_mul_pd(_mm256_sub_pd(a, b), k));
    }
}

QOR_TARGET_AVX2 void TwiddleMultiply(const Ipp64fc* a, const Ipp64fc* w, Ipp64fc* d, int length, bool inverse) {
    int i = 0;
    for (; i + 2 <= length; i += 2) {
        const __m256d v = _mm256_loadu_pd(D(a + i)), t = _mm256_loadu_pd(D(w + i));
        _mm256_storeu_pd(D(d + i), inverse ? TwiddleLoaded<true>(v, t) : TwiddleLoaded<false>(v, t));
    }
    if (i < length) kFftKernelsGeneric.twiddle(a + i, w + i, d + i, length - i, inverse);
}

}  // namespace

const FftKernels kFftKernelsAvx2 = {Radix4Pass, Radix4LastPass, Radix2LastPass, TwiddleMultiply, nullptr, nullptr, nullptr};

}  // namespace qor_prim
