// The direct-form FIR sums, one set per processor level: out[i] = sum over j
// of reversed[j] line[i + j], j from 0 to taps - 1, where `line` holds the
// taps - 1 samples before the block followed by the block itself; and the
// conversions of float data in and out of the double precision filter.
#ifndef QOR_PRIMITIVES_FIR_KERNELS_H
#define QOR_PRIMITIVES_FIR_KERNELS_H

#include "ipp_types.h"

namespace qor_prim {

struct FirKernels {
    void (*directReal)(const double* line, const double* reversed, int taps, int count, double* out);
    void (*directComplex)(const Ipp64fc* line, const Ipp64fc* reversed, int taps, int count, Ipp64fc* out);
    // Float samples into the line of doubles, and outputs back to float.
    void (*widen)(const float* src, double* dst, int count);
    void (*narrow)(const double* src, float* dst, int count);
};

extern const FirKernels kFirKernelsGeneric;
extern const FirKernels kFirKernelsAvx2;
// The AVX2 sums with conversions on 512-bit registers.
extern const FirKernels kFirKernelsAvx512;

void DirectRealAvx2(const double* line, const double* reversed, int taps, int count, double* out);
void DirectComplexAvx2(const Ipp64fc* line, const Ipp64fc* reversed, int taps, int count, Ipp64fc* out);

}  // namespace qor_prim

#endif
