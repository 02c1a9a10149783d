// Direct-form FIR sums over blocks of outputs held in registers: each tap is
// broadcast once and meets 8 complex or 16 real outputs.
#include <immintrin.h>

#include "dispatch_row.h"
#include "fir_kernels.h"

namespace qor_prim {

QOR_TARGET_AVX2 void DirectRealAvx2(const double* line, const double* reversed, int taps, int count, double* out) {
    int i = 0;
    for (; i + 16 <= count; i += 16) {
        __m256d a0 = _mm256_setzero_pd(), a1 = a0, a2 = a0, a3 = a0;
        const double* x = line + i;
        for (int j = 0; j < taps; ++j) {
            const __m256d h = _mm256_broadcast_sd(reversed + j);
            a0 = _mm256_fmadd_pd(h, _mm256_loadu_pd(x + j), a0);
            a1 = _mm256_fmadd_pd(h, _mm256_loadu_pd(x + j + 4), a1);
            a2 = _mm256_fmadd_pd(h, _mm256_loadu_pd(x + j + 8), a2);
            a3 = _mm256_fmadd_pd(h, _mm256_loadu_pd(x + j + 12), a3);
        }
        _mm256_storeu_pd(out + i, a0);
        _mm256_storeu_pd(out + i + 4, a1);
        _mm256_storeu_pd(out + i + 8, a2);
        _mm256_storeu_pd(out + i + 12, a3);
    }
    for (; i + 4 <= count; i += 4) {
        __m256d a0 = _mm256_setzero_pd();
        for (int j = 0; j < taps; ++j) {
            a0 = _mm256_fmadd_pd(_mm256_broadcast_sd(reversed + j), _mm256_loadu_pd(line + i + j), a0);
        }
        _mm256_storeu_pd(out + i, a0);
    }
    if (i < count) kFirKernelsGeneric.directReal(line + i, reversed, taps, count - i, out + i);
}

// h x = hr x + hi swap(x) with the sign of the real part's term flipped at the end.
QOR_TARGET_AVX2 void DirectComplexAvx2(const Ipp64fc* line, const Ipp64fc* reversed, int taps, int count, Ipp64fc* out) {
    const double* base = &line[0].re;
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        __m256d r0 = _mm256_setzero_pd(), r1 = r0, r2 = r0, r3 = r0;
        __m256d s0 = r0, s1 = r0, s2 = r0, s3 = r0;
        const double* x = base + 2 * i;
        for (int j = 0; j < taps; ++j) {
            const __m256d hr = _mm256_broadcast_sd(&reversed[j].re);
            const __m256d hi = _mm256_broadcast_sd(&reversed[j].im);
            const double* xj = x + 2 * j;
            const __m256d x0 = _mm256_loadu_pd(xj), x1 = _mm256_loadu_pd(xj + 4);
            const __m256d x2 = _mm256_loadu_pd(xj + 8), x3 = _mm256_loadu_pd(xj + 12);
            r0 = _mm256_fmadd_pd(hr, x0, r0);
            r1 = _mm256_fmadd_pd(hr, x1, r1);
            r2 = _mm256_fmadd_pd(hr, x2, r2);
            r3 = _mm256_fmadd_pd(hr, x3, r3);
            s0 = _mm256_fmadd_pd(hi, _mm256_permute_pd(x0, 0x5), s0);
            s1 = _mm256_fmadd_pd(hi, _mm256_permute_pd(x1, 0x5), s1);
            s2 = _mm256_fmadd_pd(hi, _mm256_permute_pd(x2, 0x5), s2);
            s3 = _mm256_fmadd_pd(hi, _mm256_permute_pd(x3, 0x5), s3);
        }
        double* o = &out[i].re;
        _mm256_storeu_pd(o, _mm256_addsub_pd(r0, s0));
        _mm256_storeu_pd(o + 4, _mm256_addsub_pd(r1, s1));
        _mm256_storeu_pd(o + 8, _mm256_addsub_pd(r2, s2));
        _mm256_storeu_pd(o + 12, _mm256_addsub_pd(r3, s3));
    }
    if (i < count) kFirKernelsGeneric.directComplex(line + i, reversed, taps, count - i, out + i);
}

namespace {

QOR_TARGET_AVX2 void Widen(const float* src, double* dst, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        _mm256_storeu_pd(dst + i, _mm256_cvtps_pd(_mm_loadu_ps(src + i)));
        _mm256_storeu_pd(dst + i + 4, _mm256_cvtps_pd(_mm_loadu_ps(src + i + 4)));
    }
    if (i < count) kFirKernelsGeneric.widen(src + i, dst + i, count - i);
}

QOR_TARGET_AVX2 void Narrow(const double* src, float* dst, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        _mm_storeu_ps(dst + i, _mm256_cvtpd_ps(_mm256_loadu_pd(src + i)));
        _mm_storeu_ps(dst + i + 4, _mm256_cvtpd_ps(_mm256_loadu_pd(src + i + 4)));
    }
    if (i < count) kFirKernelsGeneric.narrow(src + i, dst + i, count - i);
}

}  // namespace

const FirKernels kFirKernelsAvx2 = {DirectRealAvx2, DirectComplexAvx2, Widen, Narrow};

}  // namespace qor_prim
