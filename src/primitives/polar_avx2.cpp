// Magnitude and angle of complex floats, eight at a time.
//
// The magnitude in double precision, as the scalar code has it. The angle
// atan2(im, re) in float: the
// ratio of the smaller to the larger part is folded below tan(pi / 8) and an
// odd polynomial gives its arctangent to about two ulps; the octant then sets
// the offset and the sign. Groups with a zero, infinite or NaN value go
// through the scalar arctangent, which knows their conventions.
#include <immintrin.h>

#include <cmath>

#include "complex_kernels.h"
#include "dispatch_row.h"

namespace qor_prim {

namespace {

QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m256 Abs(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), v); }

// Arctangent of t in [0, 1].
QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m256 AtanUnit(__m256 t) {
    const __m256 above = _mm256_cmp_ps(t, _mm256_set1_ps(0.41421356f), _CMP_GT_OQ);
    // Above tan(pi / 8): atan(t) = pi / 4 + atan((t - 1) / (t + 1)).
    const __m256 folded = _mm256_div_ps(_mm256_sub_ps(t, _mm256_set1_ps(1.0f)), _mm256_add_ps(t, _mm256_set1_ps(1.0f)));
    const __m256 x = _mm256_blendv_ps(t, folded, above);
    const __m256 z = _mm256_mul_ps(x, x);
    __m256 p = _mm256_fmadd_ps(z, _mm256_set1_ps(8.05374449538e-2f), _mm256_set1_ps(-1.38776856032e-1f));
    p = _mm256_fmadd_ps(z, p, _mm256_set1_ps(1.99777106478e-1f));
    p = _mm256_fmadd_ps(z, p, _mm256_set1_ps(-3.33329491539e-1f));
    const __m256 atanX = _mm256_fmadd_ps(_mm256_mul_ps(p, z), x, x);
    return _mm256_add_ps(atanX, _mm256_and_ps(above, _mm256_set1_ps(0.78539816f)));
}

QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m256 Atan2(__m256 y, __m256 x) {
    const __m256 ax = Abs(x), ay = Abs(y);
    const __m256 steep = _mm256_cmp_ps(ay, ax, _CMP_GT_OQ);
    const __m256 a = AtanUnit(_mm256_div_ps(_mm256_min_ps(ax, ay), _mm256_max_ps(ax, ay)));
    // Past the diagonal pi / 2 - a; left of the imaginary axis pi - that.
    __m256 r = _mm256_blendv_ps(a, _mm256_sub_ps(_mm256_set1_ps(1.57079633f), a), steep);
    r = _mm256_blendv_ps(r, _mm256_sub_ps(_mm256_set1_ps(3.14159265f), r), x);
    return _mm256_or_ps(r, _mm256_and_ps(y, _mm256_set1_ps(-0.0f)));
}

// True when every lane has a non-zero larger part and both parts finite.
QOR_TARGET_AVX2 QOR_ALWAYS_INLINE bool AllOrdinary(__m256 y, __m256 x) {
    const __m256 big = _mm256_max_ps(Abs(x), Abs(y));
    const __m256 positive = _mm256_cmp_ps(big, _mm256_setzero_ps(), _CMP_GT_OQ);
    const __m256 finite = _mm256_cmp_ps(big, _mm256_set1_ps(3.4028235e38f), _CMP_LE_OQ);
    return _mm256_movemask_ps(_mm256_and_ps(positive, finite)) == 0xFF;
}

// The real and imaginary parts of eight complex floats.
struct Parts {
    __m256 re, im;
};

// The shuffles of LoadParts give the parts in the order 0 1 4 5 2 3 6 7; this restores it.
QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m256 InOrder(__m256 v) {
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0xD8));
}

QOR_TARGET_AVX2 QOR_ALWAYS_INLINE Parts LoadParts(const float* s) {
    const __m256 lo = _mm256_loadu_ps(s), hi = _mm256_loadu_ps(s + 8);
    return {InOrder(_mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0))),
            InOrder(_mm256_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1)))};
}

QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m128 Magnitude4(__m128 re, __m128 im) {
    const __m256d r = _mm256_cvtps_pd(re), i = _mm256_cvtps_pd(im);
    return _mm256_cvtpd_ps(_mm256_sqrt_pd(_mm256_fmadd_pd(r, r, _mm256_mul_pd(i, i))));
}

}  // namespace

QOR_TARGET_AVX2 void MagnitudeAvx2_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    int i = 0;
    for (; i + 8 <= length; i += 8) {
        const Parts z = LoadParts(&src[i].re);
        _mm_storeu_ps(dst + i, Magnitude4(_mm256_castps256_ps128(z.re), _mm256_castps256_ps128(z.im)));
        _mm_storeu_ps(dst + i + 4, Magnitude4(_mm256_extractf128_ps(z.re, 1), _mm256_extractf128_ps(z.im, 1)));
    }
    MagnitudeGeneric_32fc(src + i, dst + i, length - i);
}

QOR_TARGET_AVX2 void PhaseAvx2_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    int i = 0;
    for (; i + 8 <= length; i += 8) {
        const Parts z = LoadParts(&src[i].re);
        const __m256 re = z.re, im = z.im;
        if (AllOrdinary(im, re)) {
            _mm256_storeu_ps(dst + i, Atan2(im, re));
        } else {
            PhaseGeneric_32fc(src + i, dst + i, 8);
        }
    }
    PhaseGeneric_32fc(src + i, dst + i, length - i);
}

}  // namespace qor_prim
