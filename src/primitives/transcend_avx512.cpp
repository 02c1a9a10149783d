// The logarithm on eight doubles at a time: the method of the four-wide
// code, with the lane choices as masks. Groups with zero, negative,
// subnormal, infinite or NaN arguments go through the scalar logarithm.
#include <immintrin.h>

#include "dispatch_row.h"
#include "transcend_kernels.h"

namespace qor_prim {

namespace {

QOR_TARGET_AVX512 QOR_ALWAYS_INLINE __m512d Log8(__m512d x) {
    const __m512i bits = _mm512_castpd_si512(x);
    // Exponent as a double: the biased exponent placed in the mantissa of 2^52.
    const __m512d two52 = _mm512_set1_pd(4503599627370496.0);
    // The masked shift writes every lane: the plain one makes GCC 12 warn of an undefined source.
    const __m512i biased = _mm512_mask_srli_epi64(bits, 0xFF, bits, 52);
    __m512d k = _mm512_sub_pd(_mm512_castsi512_pd(_mm512_or_si512(biased, _mm512_castpd_si512(two52))), two52);
    k = _mm512_sub_pd(k, _mm512_set1_pd(1023.0));
    const __m512i mantissaMask = _mm512_set1_epi64(0x000FFFFFFFFFFFFFLL);
    __m512d m = _mm512_castsi512_pd(
        _mm512_or_si512(_mm512_and_si512(bits, mantissaMask), _mm512_castpd_si512(_mm512_set1_pd(1.0))));
    const __mmask8 big = _mm512_cmp_pd_mask(m, _mm512_set1_pd(1.4142135623730951), _CMP_GT_OQ);
    m = _mm512_mask_mul_pd(m, big, m, _mm512_set1_pd(0.5));
    k = _mm512_mask_add_pd(k, big, k, _mm512_set1_pd(1.0));

    const __m512d f = _mm512_sub_pd(m, _mm512_set1_pd(1.0));
    const __m512d s = _mm512_div_pd(f, _mm512_add_pd(_mm512_set1_pd(2.0), f));
    const __m512d z = _mm512_mul_pd(s, s);
    const __m512d w = _mm512_mul_pd(z, z);
    __m512d t1 = _mm512_fmadd_pd(w, _mm512_set1_pd(1.531383769920937332e-01), _mm512_set1_pd(2.222219843214978396e-01));
    t1 = _mm512_fmadd_pd(w, t1, _mm512_set1_pd(3.999999999940941908e-01));
    t1 = _mm512_mul_pd(w, t1);
    __m512d t2 = _mm512_fmadd_pd(w, _mm512_set1_pd(1.479819860511658591e-01), _mm512_set1_pd(1.818357216161805012e-01));
    t2 = _mm512_fmadd_pd(w, t2, _mm512_set1_pd(2.857142874366239149e-01));
    t2 = _mm512_fmadd_pd(w, t2, _mm512_set1_pd(6.666666666666735130e-01));
    t2 = _mm512_mul_pd(z, t2);
    const __m512d r = _mm512_add_pd(t1, t2);
    const __m512d hfsq = _mm512_mul_pd(_mm512_set1_pd(0.5), _mm512_mul_pd(f, f));
    // k ln2_hi - ((hfsq - (s (hfsq + R) + k ln2_lo)) - f)
    const __m512d inner = _mm512_fmadd_pd(k, _mm512_set1_pd(1.90821492927058770002e-10),
                                          _mm512_mul_pd(s, _mm512_add_pd(hfsq, r)));
    const __m512d tail = _mm512_sub_pd(_mm512_sub_pd(hfsq, inner), f);
    return _mm512_fmsub_pd(k, _mm512_set1_pd(6.93147180369123816490e-01), tail);
}

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
            _mm512_storeu_pd(dst + i, Log8(x));
        } else {
            seen |= LnAvx2_64(src + i, dst + i, 8);
        }
    }
    if (i < length) seen |= LnAvx2_64(src + i, dst + i, length - i);
    return seen;
}

}  // namespace qor_prim
