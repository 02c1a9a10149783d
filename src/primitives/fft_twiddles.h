// Twiddle factors exp(-2 pi j k / N) to within half an ulp. The first
// eighth of the circle comes from two short tables computed in long double,
// W^k = coarse[k / F] x fine[k mod F], their product taken in long double and
// rounded once; every other twiddle is an exact reflection of one of those.
// No recurrence, so the error does not grow with N, and initialisation
// costs one long-double product per eight twiddles.
#ifndef QOR_PRIMITIVES_FFT_TWIDDLES_H
#define QOR_PRIMITIVES_FFT_TWIDDLES_H

#include <cstddef>

#include "ipp_types.h"

namespace qor_prim {

class TwiddleSource {
public:
    // Bytes of scratch memory for N = 2^order.
    static size_t ScratchBytes(int order);
    // `scratch` holds ScratchBytes(order) bytes, aligned for long double, for the lifetime of the source.
    TwiddleSource(int order, void* scratch);
    // W^k for 0 <= k < N.
    Ipp64fc operator()(long long k) const;

private:
    long long quarter_;      // N / 4 (of N = 8 for the smallest orders)
    const Ipp64fc* octant_;  // W^k for 0 <= k <= N / 8
    int shift_;              // index scaling of the smallest orders
};

}  // namespace qor_prim

#endif
