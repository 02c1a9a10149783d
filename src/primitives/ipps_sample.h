// Down-sampling with phase: consecutive blocks continue the pattern.
#ifndef QOR_PRIMITIVES_IPPS_SAMPLE_H
#define QOR_PRIMITIVES_IPPS_SAMPLE_H

#include "ipp_types.h"

// dst[i] = src[*phase + i x factor] for every such index below srcLength;
// *dstLength receives the count written and *phase the index in the next
// block where the pattern goes on. A factor of 1 is a copy.
// Status: -8 null pointer, -6 source length below 1, -59 factor below 1,
// -60 phase outside 0 to factor - 1.
IppStatus ippsSampleDown_32f(const Ipp32f* src, int srcLength, Ipp32f* dst, int* dstLength, int factor, int* phase);
IppStatus ippsSampleDown_64fc(const Ipp64fc* src, int srcLength, Ipp64fc* dst, int* dstLength, int factor,
                              int* phase);

#endif
