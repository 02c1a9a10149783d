// The logarithm on four doubles at a time. Groups with zero, negative,
// subnormal, infinite or NaN arguments go through the scalar logarithm.
#include <immintrin.h>

#include <cmath>

#include "dispatch_row.h"
#include "transcend_kernels.h"

namespace qor_prim {
namespace {

struct LogVec {
    using T = __m256d;
    using Mask = __m256d;
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Set(double v) { return _mm256_set1_pd(v); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Add(T a, T b) { return _mm256_add_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Sub(T a, T b) { return _mm256_sub_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Mul(T a, T b) { return _mm256_mul_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Div(T a, T b) { return _mm256_div_pd(a, b); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Fma(T a, T b, T c) { return _mm256_fmadd_pd(a, b, c); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Fms(T a, T b, T c) { return _mm256_fmsub_pd(a, b, c); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Or(T a, T b) { return _mm256_or_pd(a, b); }
    // The bits of x shifted down by the 52 of the mantissa.
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T ShiftExponentDown(T x) {
        return _mm256_castsi256_pd(_mm256_srli_epi64(_mm256_castpd_si256(x), 52));
    }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T MantissaOf(T x) {
        return _mm256_and_pd(x, _mm256_castsi256_pd(_mm256_set1_epi64x(0x000FFFFFFFFFFFFFLL)));
    }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static Mask Greater(T a, T b) { return _mm256_cmp_pd(a, b, _CMP_GT_OQ); }
    QOR_TARGET_AVX2 QOR_ALWAYS_INLINE static T Select(Mask m, T a, T b) { return _mm256_blendv_pd(b, a, m); }
};

}  // namespace
}  // namespace qor_prim

#define QOR_VECTOR_TARGET QOR_TARGET_AVX2
#include "log_vector.h"

namespace qor_prim {

namespace {

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
            _mm256_storeu_pd(dst + i, Log(x));
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
            _mm_storeu_ps(dst + i, _mm256_cvtpd_ps(Log(x)));
        } else {
            for (int j = i; j < i + 4; ++j) dst[j] = static_cast<float>(std::log(static_cast<double>(src[j])));
        }
    }
    for (; i < length; ++i) dst[i] = static_cast<float>(std::log(static_cast<double>(src[i])));
}

}  // namespace qor_prim
