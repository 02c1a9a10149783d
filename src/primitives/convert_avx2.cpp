// Widening and counting of 16-bit values, sixteen at a time.
#include <immintrin.h>

#include "convert_kernels.h"
#include "dispatch_row.h"

namespace qor_prim {

QOR_TARGET_AVX2 void Widen16sAvx2(const Ipp16s* src, Ipp64f* dst, int length, double factor) {
    const __m256d k = _mm256_set1_pd(factor);
    int i = 0;
    for (; i + 8 <= length; i += 8) {
        const __m256i v = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i)));
        _mm256_storeu_pd(dst + i, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(v)), k));
        _mm256_storeu_pd(dst + i + 4, _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1)), k));
    }
    Widen16sGeneric(src + i, dst + i, length - i, factor);
}

QOR_TARGET_AVX2 int CountInRange16sAvx2(const Ipp16s* src, int length, Ipp16s lower, Ipp16s upper) {
    const __m256i lo = _mm256_set1_epi16(lower), hi = _mm256_set1_epi16(upper);
    // Each lane counts the values outside, as -1 per value, for at most
    // 32767 rounds before it is added up.
    constexpr int kRounds = 32767;
    int outside = 0, i = 0;
    while (i + 16 <= length) {
        __m256i lanes = _mm256_setzero_si256();
        for (int round = 0; round < kRounds && i + 16 <= length; ++round, i += 16) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
            lanes = _mm256_add_epi16(lanes, _mm256_or_si256(_mm256_cmpgt_epi16(lo, v), _mm256_cmpgt_epi16(v, hi)));
        }
        // Sixteen counts of at most 32767 each: their pairs' sums fit 32 bits.
        const __m256i pairs = _mm256_madd_epi16(lanes, _mm256_set1_epi16(-1));
        const __m128i four = _mm_add_epi32(_mm256_castsi256_si128(pairs), _mm256_extracti128_si256(pairs, 1));
        const __m128i two = _mm_add_epi32(four, _mm_unpackhi_epi64(four, four));
        outside += _mm_cvtsi128_si32(_mm_add_epi32(two, _mm_shuffle_epi32(two, 1)));
    }
    return (i - outside) + CountInRange16sGeneric(src + i, length - i, lower, upper);
}

}  // namespace qor_prim
