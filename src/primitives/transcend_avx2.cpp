// The logarithm on four doubles at a time: the argument is split into 2^k
// times m with m between sqrt(1/2) and sqrt(2), and log(m) = log(1 + f) comes
// from the odd series of s = f / (2 + f), as in the classic scalar method,
// to within one ulp. Lanes with zero, negative, subnormal, infinite or NaN
// arguments go through the scalar logarithm.
#include <immintrin.h>

#include <cmath>

#include "dispatch_row.h"
#include "transcend_kernels.h"

namespace qor_prim {

namespace {

QOR_TARGET_AVX2 QOR_ALWAYS_INLINE __m256d Log4(__m256d x) {
    const __m256i bits = _mm256_castpd_si256(x);
    // Exponent as a double: the biased exponent placed in the mantissa of 2^52.
    const __m256i biased = _mm256_srli_epi64(bits, 52);
    const __m256d two52 = _mm256_set1_pd(4503599627370496.0);
    __m256d k = _mm256_sub_pd(_mm256_castsi256_pd(_mm256_or_si256(biased, _mm256_castpd_si256(two52))), two52);
    k = _mm256_sub_pd(k, _mm256_set1_pd(1023.0));
    const __m256i mantissaMask = _mm256_set1_epi64x(0x000FFFFFFFFFFFFFLL);
    __m256d m = _mm256_castsi256_pd(
        _mm256_or_si256(_mm256_and_si256(bits, mantissaMask), _mm256_castpd_si256(_mm256_set1_pd(1.0))));
    const __m256d big = _mm256_cmp_pd(m, _mm256_set1_pd(1.4142135623730951), _CMP_GT_OQ);
    m = _mm256_blendv_pd(m, _mm256_mul_pd(m, _mm256_set1_pd(0.5)), big);
    k = _mm256_add_pd(k, _mm256_and_pd(big, _mm256_set1_pd(1.0)));

    const __m256d f = _mm256_sub_pd(m, _mm256_set1_pd(1.0));
    const __m256d s = _mm256_div_pd(f, _mm256_add_pd(_mm256_set1_pd(2.0), f));
    const __m256d z = _mm256_mul_pd(s, s);
    const __m256d w = _mm256_mul_pd(z, z);
    __m256d t1 = _mm256_fmadd_pd(w, _mm256_set1_pd(1.531383769920937332e-01), _mm256_set1_pd(2.222219843214978396e-01));
    t1 = _mm256_fmadd_pd(w, t1, _mm256_set1_pd(3.999999999940941908e-01));
    t1 = _mm256_mul_pd(w, t1);
    __m256d t2 = _mm256_fmadd_pd(w, _mm256_set1_pd(1.479819860511658591e-01), _mm256_set1_pd(1.818357216161805012e-01));
    t2 = _mm256_fmadd_pd(w, t2, _mm256_set1_pd(2.857142874366239149e-01));
    t2 = _mm256_fmadd_pd(w, t2, _mm256_set1_pd(6.666666666666735130e-01));
    t2 = _mm256_mul_pd(z, t2);
    const __m256d r = _mm256_add_pd(t1, t2);
    const __m256d hfsq = _mm256_mul_pd(_mm256_set1_pd(0.5), _mm256_mul_pd(f, f));
    // k ln2_hi - ((hfsq - (s (hfsq + R) + k ln2_lo)) - f)
    const __m256d inner = _mm256_fmadd_pd(k, _mm256_set1_pd(1.90821492927058770002e-10),
                                          _mm256_mul_pd(s, _mm256_add_pd(hfsq, r)));
    const __m256d tail = _mm256_sub_pd(_mm256_sub_pd(hfsq, inner), f);
    return _mm256_fmsub_pd(k, _mm256_set1_pd(6.93147180369123816490e-01), tail);
}

// True when all four lanes are normal, positive and finite.
QOR_TARGET_AVX2 QOR_ALWAYS_INLINE bool AllOrdinary(__m256d x) {
    const __m256d lo = _mm256_cmp_pd(x, _mm256_set1_pd(2.2250738585072014e-308), _CMP_GE_OQ);
    const __m256d hi = _mm256_cmp_pd(x, _mm256_set1_pd(1.7976931348623157e308), _CMP_LE_OQ);
    return _mm256_movemask_pd(_mm256_and_pd(lo, hi)) == 0xF;
}

}  // namespace

QOR_TARGET_AVX2 int LnAvx2_64(const double* src, double* dst, int length) {
    int seen = 0;
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m256d x = _mm256_loadu_pd(src + i);
        if (AllOrdinary(x)) {
            _mm256_storeu_pd(dst + i, Log4(x));
        } else {
            for (int j = i; j < i + 4; ++j) seen |= LnClassified(src[j], dst + j);
        }
    }
    for (; i < length; ++i) seen |= LnClassified(src[i], dst + i);
    return seen;
}

QOR_TARGET_AVX2 void LnAvx2_32(const float* src, float* dst, int length) {
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        const __m256d x = _mm256_cvtps_pd(_mm_loadu_ps(src + i));
        if (AllOrdinary(x)) {
            _mm_storeu_ps(dst + i, _mm256_cvtpd_ps(Log4(x)));
        } else {
            for (int j = i; j < i + 4; ++j) dst[j] = static_cast<float>(std::log(static_cast<double>(src[j])));
        }
    }
    for (; i < length; ++i) dst[i] = static_cast<float>(std::log(static_cast<double>(src[i])));
}

}  // namespace qor_prim
