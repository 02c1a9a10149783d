// Twiddle factors exp(-2 pi j k / N) to within half an ulp: two short tables
// computed in long double, W^k = coarse[k / F] x fine[k mod F], their product
// taken in long double and rounded once. No recurrence, so the error does not
// grow with N, and initialisation costs about one long-double product per twiddle.
#ifndef QOR_PRIMITIVES_FFT_TWIDDLES_H
#define QOR_PRIMITIVES_FFT_TWIDDLES_H

#include <cstddef>

#include "ipp_types.h"

namespace qor_prim {

class TwiddleSource {
public:
    struct Entry {
        long double re, im;
    };
    // Bytes of scratch memory for N = 2^order.
    static size_t ScratchBytes(int order);
    // `scratch` holds ScratchBytes(order) bytes, aligned for long double, for the lifetime of the source.
    TwiddleSource(int order, void* scratch);
    Ipp64fc operator()(long long k) const;

private:
    int fineBits_;
    long long fineMask_;
    const Entry* fine_;
    const Entry* coarse_;
};

}  // namespace qor_prim

#endif
