// The code paths of the widening of the device's 16-bit samples, and of the
// count that looks at them for values at the converter's limits.
#ifndef QOR_PRIMITIVES_CONVERT_KERNELS_H
#define QOR_PRIMITIVES_CONVERT_KERNELS_H

#include "ipp_types.h"

namespace qor_prim {

// dst[i] = src[i] x factor.
using WidenKernel = void (*)(const Ipp16s* src, Ipp64f* dst, int length, double factor);
// How many values lie in [lower, upper].
using CountInRangeKernel = int (*)(const Ipp16s* src, int length, Ipp16s lower, Ipp16s upper);

void Widen16sGeneric(const Ipp16s* src, Ipp64f* dst, int length, double factor);
void Widen16sAvx2(const Ipp16s* src, Ipp64f* dst, int length, double factor);
int CountInRange16sGeneric(const Ipp16s* src, int length, Ipp16s lower, Ipp16s upper);
int CountInRange16sAvx2(const Ipp16s* src, int length, Ipp16s lower, Ipp16s upper);

}  // namespace qor_prim

#endif
