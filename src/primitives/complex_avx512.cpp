// Complex products on four complex doubles per 512-bit register.
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

}  // namespace qor_prim
