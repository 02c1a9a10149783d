// The code paths of the logarithm, one per processor level.
#ifndef QOR_PRIMITIVES_TRANSCEND_KERNELS_H
#define QOR_PRIMITIVES_TRANSCEND_KERNELS_H

namespace qor_prim {

using LnKernel64 = void (*)(const double* src, double* dst, int length);
using LnKernel32 = void (*)(const float* src, float* dst, int length);

void LnGeneric64(const double* src, double* dst, int length);
void LnGeneric32(const float* src, float* dst, int length);
void LnAvx2_64(const double* src, double* dst, int length);
void LnAvx2_32(const float* src, float* dst, int length);

}  // namespace qor_prim

#endif
