// Image transposition.
#ifndef QOR_PRIMITIVES_IPPI_TRANSPOSE_H
#define QOR_PRIMITIVES_IPPI_TRANSPOSE_H

#include "ipp_types.h"

// The source region of size.width x size.height elements (rows srcStep bytes
// apart) lands transposed in the destination (rows dstStep bytes apart):
// dst row x, column y = src row y, column x.
// Status: -8 null pointer, -6 width or height below 1, -14 a step shorter
// than its row or not a multiple of 4 bytes.
IppStatus ippiTranspose_32f_C1R(const Ipp32f* src, int srcStep, Ipp32f* dst, int dstStep, IppiSize size);

#endif
