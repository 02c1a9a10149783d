// The code paths of the logarithm, one per processor level and register width.
#ifndef QOR_PRIMITIVES_TRANSCEND_KERNELS_H
#define QOR_PRIMITIVES_TRANSCEND_KERNELS_H

namespace qor_prim {

// The 64-bit kernels classify their arguments on the way: the result has
// kLnSawZero and kLnSawNegative set as such arguments occurred.
constexpr int kLnSawZero = 1;
constexpr int kLnSawNegative = 2;

using LnKernel64 = int (*)(const double* src, double* dst, int length);
using LnKernel32 = void (*)(const float* src, float* dst, int length);

// log(x) into *y, and the class of x (kLnSawZero, kLnSawNegative or 0).
int LnClassified(double x, double* y);
int LnGeneric64(const double* src, double* dst, int length);
void LnGeneric32(const float* src, float* dst, int length);
int LnAvx2_64(const double* src, double* dst, int length);
int LnAvx512_64(const double* src, double* dst, int length);
void LnAvx2_32(const float* src, float* dst, int length);

}  // namespace qor_prim

#endif
