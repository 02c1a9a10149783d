// Types and status values shared by every vector primitive.
#ifndef QOR_PRIMITIVES_IPP_TYPES_H
#define QOR_PRIMITIVES_IPP_TYPES_H

#include <cstdint>

typedef unsigned char Ipp8u;
typedef int16_t Ipp16s;
typedef int32_t Ipp32s;
typedef uint32_t Ipp32u;
typedef float Ipp32f;
typedef double Ipp64f;
struct Ipp32fc { float re; float im; };
struct Ipp64fc { double re; double im; };

// 0 success, negative errors, positive warnings (the computation went on).
typedef int IppStatus;
enum : IppStatus {
    ippStsNoErr = 0,
    ippStsSizeErr = -6,
    ippStsNullPtrErr = -8,
    ippStsLnZeroArg = 7,
    ippStsLnNegArg = 8,
};

#endif
