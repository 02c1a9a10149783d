#include "ipps_sample.h"

#include "ipp_check.h"

namespace {

template <typename T>
IppStatus SampleDown(const T* src, int srcLength, T* dst, int* dstLength, int factor, int* phase) {
    if (qor_prim::AnyNull(src, dst, dstLength, phase)) return ippStsNullPtrErr;
    if (srcLength < 1) return ippStsSizeErr;
    if (factor < 1) return ippStsSampleFactorErr;
    if (*phase < 0 || *phase >= factor) return ippStsSamplePhaseErr;
    int count = 0;
    int i = *phase;
    for (; i < srcLength; i += factor) dst[count++] = src[i];
    *dstLength = count;
    *phase = i - srcLength;
    return ippStsNoErr;
}

}  // namespace

IppStatus ippsSampleDown_32f(const Ipp32f* src, int srcLength, Ipp32f* dst, int* dstLength, int factor, int* phase) {
    return SampleDown(src, srcLength, dst, dstLength, factor, phase);
}

IppStatus ippsSampleDown_64fc(const Ipp64fc* src, int srcLength, Ipp64fc* dst, int* dstLength, int factor,
                              int* phase) {
    return SampleDown(src, srcLength, dst, dstLength, factor, phase);
}
