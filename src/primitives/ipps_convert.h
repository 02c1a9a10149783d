// Clearing, copying and conversion. Arguments are source, destination, length
// in elements unless a declaration says otherwise. Status: -8 for a null
// pointer, -6 for a length below 1, and nothing written then.
#ifndef QOR_PRIMITIVES_IPPS_CONVERT_H
#define QOR_PRIMITIVES_IPPS_CONVERT_H

#include "ipp_types.h"

IppStatus ippsZero_32s(Ipp32s* dst, int length);
IppStatus ippsZero_32f(Ipp32f* dst, int length);
IppStatus ippsZero_64f(Ipp64f* dst, int length);
IppStatus ippsZero_64fc(Ipp64fc* dst, int length);

// The ranges must not overlap.
IppStatus ippsCopy_32s(const Ipp32s* src, Ipp32s* dst, int length);
IppStatus ippsCopy_32f(const Ipp32f* src, Ipp32f* dst, int length);
IppStatus ippsCopy_64f(const Ipp64f* src, Ipp64f* dst, int length);
IppStatus ippsCopy_64fc(const Ipp64fc* src, Ipp64fc* dst, int length);

// Copy with overlapping ranges allowed.
IppStatus ippsMove_32f(const Ipp32f* src, Ipp32f* dst, int length);

IppStatus ippsConvert_32f64f(const Ipp32f* src, Ipp64f* dst, int length);
IppStatus ippsConvert_64f32f(const Ipp64f* src, Ipp32f* dst, int length);
IppStatus ippsConvert_32s32f(const Ipp32s* src, Ipp32f* dst, int length);

// value x 2^-scaleFactor, rounded (ippRndNear: to nearest, ties to even;
// ippRndZero: toward zero) and saturated to the 32-bit range; NaN gives 0.
IppStatus ippsConvert_32f32s_Sfs(const Ipp32f* src, Ipp32s* dst, int length, IppRoundMode rounding,
                                 int scaleFactor);

// value x 2^-scaleFactor.
IppStatus ippsConvert_16s64f_Sfs(const Ipp16s* src, Ipp64f* dst, int length, int scaleFactor);

// *count = how many values lie in [lower, upper].
IppStatus ippsCountInRange_16s(const Ipp16s* src, int length, int* count, Ipp16s lower, Ipp16s upper);

#endif
