// The conversions in and out of the FIR's double precision line, sixteen
// values at a time (the masked forms, with every lane written, keep GCC 12
// from warning of an undefined source).
#include <immintrin.h>

#include "dispatch_row.h"
#include "fir_kernels.h"

namespace qor_prim {

namespace {

QOR_TARGET_AVX512 void Widen(const float* src, double* dst, int count) {
    const __m512d zero = _mm512_setzero_pd();
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        _mm512_storeu_pd(dst + i, _mm512_mask_cvtps_pd(zero, 0xFF, _mm256_loadu_ps(src + i)));
        _mm512_storeu_pd(dst + i + 8, _mm512_mask_cvtps_pd(zero, 0xFF, _mm256_loadu_ps(src + i + 8)));
    }
    if (i < count) kFirKernelsAvx2.widen(src + i, dst + i, count - i);
}

QOR_TARGET_AVX512 void Narrow(const double* src, float* dst, int count) {
    const __m256 zero = _mm256_setzero_ps();
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        _mm256_storeu_ps(dst + i, _mm512_mask_cvtpd_ps(zero, 0xFF, _mm512_loadu_pd(src + i)));
        _mm256_storeu_ps(dst + i + 8, _mm512_mask_cvtpd_ps(zero, 0xFF, _mm512_loadu_pd(src + i + 8)));
    }
    if (i < count) kFirKernelsAvx2.narrow(src + i, dst + i, count - i);
}

}  // namespace

const FirKernels kFirKernelsAvx512 = {DirectRealAvx2, DirectComplexAvx2, Widen, Narrow};

}  // namespace qor_prim
