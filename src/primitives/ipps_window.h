// Windows applied in place.
#ifndef QOR_PRIMITIVES_IPPS_WINDOW_H
#define QOR_PRIMITIVES_IPPS_WINDOW_H

#include "ipp_types.h"

// Multiplies the array by the standard Blackman window (alpha -0.16:
// 0.42 - 0.5 cos + 0.08 cos of twice the angle). Status: -8 null pointer,
// -6 length below 3.
IppStatus ippsWinBlackmanStd_64f_I(Ipp64f* array, int length);

#endif
