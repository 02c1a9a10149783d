// Element-wise arithmetic on real vectors. In the three-array forms `a` and
// `b` are the sources in the order given and `d` the destination, which may
// be one of the sources. Status: -8 for a null pointer, -6 for a length below
// 1, and nothing written then.
#ifndef QOR_PRIMITIVES_IPPS_ARITH_H
#define QOR_PRIMITIVES_IPPS_ARITH_H

#include "ipp_types.h"

// d = a + b
IppStatus ippsAdd_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length);
IppStatus ippsAdd_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length);
// d = a + b, saturated at 4294967295
IppStatus ippsAdd_32u(const Ipp32u* a, const Ipp32u* b, Ipp32u* d, int length);
// d = b - a (note the order)
IppStatus ippsSub_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length);
// d = (b - a) x 2^-scaleFactor, rounded to nearest and saturated to the 32-bit range
IppStatus ippsSub_32s_Sfs(const Ipp32s* a, const Ipp32s* b, Ipp32s* d, int length, int scaleFactor);
// d = a x b
IppStatus ippsMul_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length);
IppStatus ippsMul_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length);
// d = the smaller / larger of a and b
IppStatus ippsMinEvery_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length);
IppStatus ippsMaxEvery_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length);
IppStatus ippsMaxEvery_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length);

// d = src + value, d = src x value
IppStatus ippsAddC_32f(const Ipp32f* src, Ipp32f value, Ipp32f* d, int length);
IppStatus ippsAddC_64f(const Ipp64f* src, Ipp64f value, Ipp64f* d, int length);
IppStatus ippsMulC_32f(const Ipp32f* src, Ipp32f value, Ipp32f* d, int length);
IppStatus ippsMulC_64f(const Ipp64f* src, Ipp64f value, Ipp64f* d, int length);
// The same in place.
IppStatus ippsAddC_32f_I(Ipp32f value, Ipp32f* array, int length);
IppStatus ippsAddC_64f_I(Ipp64f value, Ipp64f* array, int length);
IppStatus ippsMulC_32f_I(Ipp32f value, Ipp32f* array, int length);
IppStatus ippsMulC_64f_I(Ipp64f value, Ipp64f* array, int length);

// d = src x src
IppStatus ippsSqr_64f(const Ipp64f* src, Ipp64f* d, int length);

// An element below levelLT becomes valueLT, above levelGT becomes valueGT,
// else it is kept. ippStsBadArgErr if levelLT > levelGT.
IppStatus ippsThreshold_LTValGTVal_32s(const Ipp32s* src, Ipp32s* d, int length, Ipp32s levelLT, Ipp32s valueLT,
                                       Ipp32s levelGT, Ipp32s valueGT);

#endif
