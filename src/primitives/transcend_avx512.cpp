// The logarithm on eight doubles at a time. Groups with zero, negative,
// subnormal, infinite or NaN arguments go through the four-wide code.
#include <immintrin.h>

#include "dispatch_row.h"
#include "transcend_kernels.h"

namespace qor_prim {
namespace {

// The masked shift writes every lane: the plain one makes GCC 12 warn of an undefined source.
struct LogVec {
    using T = __m512d;
    using Mask = __mmask8;
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Set(double v) { return _mm512_set1_pd(v); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Add(T a, T b) { return _mm512_add_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Sub(T a, T b) { return _mm512_sub_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Mul(T a, T b) { return _mm512_mul_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Div(T a, T b) { return _mm512_div_pd(a, b); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Fma(T a, T b, T c) { return _mm512_fmadd_pd(a, b, c); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Fms(T a, T b, T c) { return _mm512_fmsub_pd(a, b, c); }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Or(T a, T b) { return _mm512_or_pd(a, b); }
    // The bits of x shifted down by the 52 of the mantissa.
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T ShiftExponentDown(T x) {
        const __m512i bits = _mm512_castpd_si512(x);
        return _mm512_castsi512_pd(_mm512_mask_srli_epi64(bits, 0xFF, bits, 52));
    }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T MantissaOf(T x) {
        return _mm512_and_pd(x, _mm512_castsi512_pd(_mm512_set1_epi64(0x000FFFFFFFFFFFFFLL)));
    }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static Mask Greater(T a, T b) {
        return _mm512_cmp_pd_mask(a, b, _CMP_GT_OQ);
    }
    QOR_TARGET_AVX512 QOR_ALWAYS_INLINE static T Select(Mask m, T a, T b) { return _mm512_mask_blend_pd(m, b, a); }
};

}  // namespace
}  // namespace qor_prim

#define QOR_VECTOR_TARGET QOR_TARGET_AVX512
#include "log_vector.h"

namespace qor_prim {

namespace {

// True when all eight lanes are normal, positive and finite.
QOR_TARGET_AVX512 QOR_ALWAYS_INLINE bool AllOrdinary(__m512d x) {
    const __mmask8 lo = _mm512_cmp_pd_mask(x, _mm512_set1_pd(2.2250738585072014e-308), _CMP_GE_OQ);
    const __mmask8 hi = _mm512_cmp_pd_mask(x, _mm512_set1_pd(1.7976931348623157e308), _CMP_LE_OQ);
    return (lo & hi) == 0xFF;
}

}  // namespace

QOR_TARGET_AVX512 int LnAvx512_64(const double* src, double* dst, int length) {
    int seen = 0;
    int i = 0;
    for (; i + 8 <= length; i += 8) {
        const __m512d x = _mm512_loadu_pd(src + i);
        if (AllOrdinary(x)) {
            _mm512_storeu_pd(dst + i, Log(x));
        } else {
            seen |= LnAvx2_64(src + i, dst + i, 8);
        }
    }
    if (i < length) seen |= LnAvx2_64(src + i, dst + i, length - i);
    return seen;
}

}  // namespace qor_prim
