// Complex products on four complex doubles per 512-bit register, and the
// magnitudes of eight complex floats at a time (in double precision, as the
// other paths have them).
#include <immintrin.h>

#include "complex_kernels.h"
#include "dispatch_row.h"

namespace qor_prim {

// The masked permutes write every lane: the plain ones make GCC 12 warn of an
// undefined source.
QOR_TARGET_AVX512 void MulAvx512(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length) {
    const double* pa = &a[0].re;
    const double* pb = &b[0].re;
    double* pd = &d[0].re;
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m512d x = _mm512_loadu_pd(pa + 2 * i);
        const __m512d y = _mm512_loadu_pd(pb + 2 * i);
        const __m512d yr = _mm512_mask_movedup_pd(y, 0xFF, y);
        const __m512d yi = _mm512_mask_permute_pd(y, 0xFF, y, 0xFF);
        const __m512d xs = _mm512_mask_permute_pd(x, 0xFF, x, 0x55);
        _mm512_storeu_pd(pd + 2 * i, _mm512_fmaddsub_pd(x, yr, _mm512_mul_pd(xs, yi)));
    }
    if (i < length) MulAvx2(a + i, b + i, d + i, length - i);
}

QOR_TARGET_AVX512 void MulConstAvx512(const Ipp64fc* a, Ipp64fc c, Ipp64fc* d, int length) {
    const double* pa = &a[0].re;
    double* pd = &d[0].re;
    const __m512d cr = _mm512_set1_pd(c.re), ci = _mm512_set1_pd(c.im);
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m512d x = _mm512_loadu_pd(pa + 2 * i);
        const __m512d xs = _mm512_mask_permute_pd(x, 0xFF, x, 0x55);
        _mm512_storeu_pd(pd + 2 * i, _mm512_fmaddsub_pd(x, cr, _mm512_mul_pd(xs, ci)));
    }
    if (i < length) MulConstGeneric(a + i, c, d + i, length - i);
}

QOR_TARGET_AVX512 void MagnitudeAvx512_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    int i = 0;
    for (; i + 8 <= length; i += 8) {
        // Eight complex floats as doubles: real parts in the even lanes, imaginary in the odd.
        // (The masked forms, with every lane written, keep GCC 12 from warning of an undefined source.)
        const __m512d zero = _mm512_setzero_pd();
        const __m512d lo = _mm512_mask_cvtps_pd(zero, 0xFF, _mm256_loadu_ps(&src[i].re));
        const __m512d hi = _mm512_mask_cvtps_pd(zero, 0xFF, _mm256_loadu_ps(&src[i + 4].re));
        const __m512d lo2 = _mm512_mul_pd(lo, lo), hi2 = _mm512_mul_pd(hi, hi);
        // Pairs summed: re^2 + im^2 of each, in the order of the values.
        const __m512i evens = _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14);
        const __m512i odds = _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15);
        const __m512d sum = _mm512_add_pd(_mm512_permutex2var_pd(lo2, evens, hi2), _mm512_permutex2var_pd(lo2, odds, hi2));
        _mm256_storeu_ps(dst + i, _mm512_mask_cvtpd_ps(_mm256_setzero_ps(), 0xFF, _mm512_mask_sqrt_pd(sum, 0xFF, sum)));
    }
    MagnitudeGeneric_32fc(src + i, dst + i, length - i);
}

}  // namespace qor_prim
