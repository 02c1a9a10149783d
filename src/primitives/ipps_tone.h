// Complex tone generator with phase continuation.
#ifndef QOR_PRIMITIVES_IPPS_TONE_H
#define QOR_PRIMITIVES_IPPS_TONE_H

#include "ipp_types.h"

// dst[n] = magnitude x (cos t + j sin t), t = 2 pi frequency n + *phase, for
// n from 0 to length - 1, frequency relative to the sample rate. Afterwards
// *phase = 2 pi frequency length + *phase reduced to 0 .. 2 pi, so that the
// next call with the same phase continues the tone without a seam. Every
// hint gives the same samples, within a few ulps of the exact tone.
// Status: -8 null pointer, -6 length below 1, -46 magnitude not positive,
// -45 frequency outside 0 to 1 (1 excluded), -44 phase outside 0 to 2 pi
// (2 pi excluded); nothing written then.
IppStatus ippsTone_64fc(Ipp64fc* dst, int length, Ipp64f magnitude, Ipp64f frequency, Ipp64f* phase,
                        IppHintAlgorithm hint);

#endif
