// The code paths of the complex vector primitives on the display, mixer and demodulator loops.
#ifndef QOR_PRIMITIVES_COMPLEX_KERNELS_H
#define QOR_PRIMITIVES_COMPLEX_KERNELS_H

#include "ipp_types.h"

namespace qor_prim {

using MulKernel = void (*)(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length);
// d[i] = a[i] x c.
using MulConstKernel = void (*)(const Ipp64fc* a, Ipp64fc c, Ipp64fc* d, int length);
using PowerKernel = void (*)(const Ipp64fc* src, Ipp64f* dst, int length);
// Magnitude or angle of complex floats.
using PolarKernel = void (*)(const Ipp32fc* src, Ipp32f* dst, int length);

void MulGeneric(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length);
void MulAvx2(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length);
void MulAvx512(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length);
void MulConstGeneric(const Ipp64fc* a, Ipp64fc c, Ipp64fc* d, int length);
void MulConstAvx512(const Ipp64fc* a, Ipp64fc c, Ipp64fc* d, int length);
void PowerGeneric(const Ipp64fc* src, Ipp64f* dst, int length);
void PowerAvx2(const Ipp64fc* src, Ipp64f* dst, int length);
void MagnitudeGeneric_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
void MagnitudeAvx2_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
void MagnitudeAvx512_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
void PhaseGeneric_32fc(const Ipp32fc* src, Ipp32f* dst, int length);
void PhaseAvx2_32fc(const Ipp32fc* src, Ipp32f* dst, int length);

}  // namespace qor_prim

#endif
