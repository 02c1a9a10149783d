// Complex vectors, real part first. Source and destination may be the same
// array. Status: -8 for a null pointer, -6 for a length below 1, and nothing
// written then.
#ifndef QOR_PRIMITIVES_IPPS_COMPLEX_H
#define QOR_PRIMITIVES_IPPS_COMPLEX_H

#include "ipp_types.h"

// d = a x b
IppStatus ippsMul_64fc(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length);
// array = array x src
IppStatus ippsMul_64fc_I(const Ipp64fc* src, Ipp64fc* array, int length);
IppStatus ippsConj_64fc(const Ipp64fc* src, Ipp64fc* dst, int length);
// sqrt(re^2 + im^2), without overflow for large parts
IppStatus ippsMagnitude_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
IppStatus ippsMagnitude_64fc(const Ipp64fc* src, Ipp64f* dst, int length);
// re^2 + im^2
IppStatus ippsPowerSpectr_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
IppStatus ippsPowerSpectr_64fc(const Ipp64fc* src, Ipp64f* dst, int length);
// atan2(im, re) in radians
IppStatus ippsPhase_32fc(const Ipp32fc* src, Ipp32f* dst, int length);

#endif
