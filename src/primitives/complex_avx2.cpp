// Complex products and powers on two complex doubles per register.
#include <immintrin.h>

#include "complex_kernels.h"
#include "dispatch_row.h"

namespace qor_prim {

QOR_TARGET_AVX2 void MulAvx2(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length) {
    const double* pa = &a[0].re;
    const double* pb = &b[0].re;
    double* pd = &d[0].re;
    int i = 0;
    for (; i + 2 <= length; i += 2) {
        const __m256d x = _mm256_loadu_pd(pa + 2 * i);
        const __m256d y = _mm256_loadu_pd(pb + 2 * i);
        const __m256d yr = _mm256_movedup_pd(y);
        const __m256d yi = _mm256_permute_pd(y, 0xF);
        const __m256d xs = _mm256_permute_pd(x, 0x5);
        _mm256_storeu_pd(pd + 2 * i, _mm256_fmaddsub_pd(x, yr, _mm256_mul_pd(xs, yi)));
    }
    for (; i < length; ++i) {
        const Ipp64fc x = a[i], y = b[i];
        d[i] = {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
    }
}

QOR_TARGET_AVX2 void PowerAvx2(const Ipp64fc* src, Ipp64f* dst, int length) {
    const double* ps = &src[0].re;
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m256d x0 = _mm256_loadu_pd(ps + 2 * i);
        const __m256d x1 = _mm256_loadu_pd(ps + 2 * i + 4);
        // hadd gives (p0, p2, p1, p3); the lane permutation restores the order.
        const __m256d sum = _mm256_hadd_pd(_mm256_mul_pd(x0, x0), _mm256_mul_pd(x1, x1));
        _mm256_storeu_pd(dst + i, _mm256_permute4x64_pd(sum, 0xD8));
    }
    for (; i < length; ++i) dst[i] = src[i].re * src[i].re + src[i].im * src[i].im;
}

}  // namespace qor_prim
