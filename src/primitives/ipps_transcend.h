// Transcendental functions. The suffix A11 or A21 states how many bits of
// the result are correct at least; the others are accurate to about one ulp.
// Source and destination may be the same array. Status: -8 for a null
// pointer, -6 for a length below 1, and nothing written then.
#ifndef QOR_PRIMITIVES_IPPS_TRANSCEND_H
#define QOR_PRIMITIVES_IPPS_TRANSCEND_H

#include "ipp_types.h"

// Natural logarithm. The computation goes on over every element; the status
// is ippStsLnNegArg (8) if an argument was negative (its result is NaN), else
// ippStsLnZeroArg (7) if one was zero (its result is -infinity).
IppStatus ippsLn_64f(const Ipp64f* src, Ipp64f* dst, int length);
IppStatus ippsLn_32f_A11(const Ipp32f* src, Ipp32f* dst, int length);
IppStatus ippsSqrt_32f_A11(const Ipp32f* src, Ipp32f* dst, int length);
IppStatus ippsExp_32f_A21(const Ipp32f* src, Ipp32f* dst, int length);
IppStatus ippsExp_64f_I(Ipp64f* array, int length);

#endif
