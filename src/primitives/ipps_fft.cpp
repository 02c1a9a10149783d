#include "ipps_fft.h"

#include <cmath>

#include "fft_core.h"
#include "ipp_check.h"

namespace {

bool ScalesOf(int flag, int order, double* forward, double* inverse) {
    const double n = std::ldexp(1.0, order);
    switch (flag) {
        case IPP_FFT_DIV_FWD_BY_N: *forward = 1.0 / n, *inverse = 1.0; return true;
        case IPP_FFT_DIV_INV_BY_N: *forward = 1.0, *inverse = 1.0 / n; return true;
        case IPP_FFT_DIV_BY_SQRTN: *forward = *inverse = 1.0 / std::sqrt(n); return true;
        case IPP_FFT_NODIV_BY_ANY: *forward = *inverse = 1.0; return true;
        default: return false;
    }
}

// The frame of every transform call: its pointers, then a setup block that
// ippsFFTInit_C_64fc made.
template <typename... P>
IppStatus Refusal(const IppsFFTSpec_C_64fc* spec, const P*... pointers) {
    if (qor_prim::AnyNull(spec, pointers...)) return ippStsNullPtrErr;
    return spec->magic != qor_prim::kFftMagic ? ippStsContextMatchErr : ippStsNoErr;
}

IppStatus Transform(const Ipp64fc* src, Ipp64fc* dst, const IppsFFTSpec_C_64fc* spec, Ipp8u* work, bool inverse) {
    if (const IppStatus refused = Refusal(spec, src, dst, work)) return refused;
    qor_prim::FftRun(*spec, src, dst, work, inverse);
    return ippStsNoErr;
}

}  // namespace

IppStatus ippsFFTGetSize_C_64fc(int order, int flag, IppHintAlgorithm /*hint*/, int* specSize, int* initSize,
                                int* workSize) {
    if (qor_prim::AnyNull(specSize, initSize, workSize)) return ippStsNullPtrErr;
    if (order < 0 || order > qor_prim::kFftMaxOrder) return ippStsFFTOrderErr;
    double forward, inverse;
    if (!ScalesOf(flag, order, &forward, &inverse)) return ippStsFFTFlagErr;
    const qor_prim::FftSizes sizes = qor_prim::FftMemorySizes(order);
    *specSize = static_cast<int>(sizes.spec);
    *initSize = static_cast<int>(sizes.init);
    *workSize = static_cast<int>(sizes.work);
    return ippStsNoErr;
}

IppStatus ippsFFTInit_C_64fc(IppsFFTSpec_C_64fc** spec, int order, int flag, IppHintAlgorithm /*hint*/, Ipp8u* specMemory,
                             Ipp8u* initMemory) {
    if (qor_prim::AnyNull(spec, specMemory, initMemory)) return ippStsNullPtrErr;
    if (order < 0 || order > qor_prim::kFftMaxOrder) return ippStsFFTOrderErr;
    double forward, inverse;
    if (!ScalesOf(flag, order, &forward, &inverse)) return ippStsFFTFlagErr;
    *spec = qor_prim::FftBuild(order, forward, inverse, specMemory, initMemory);
    return ippStsNoErr;
}

IppStatus ippsFFTFwd_CToC_64fc(const Ipp64fc* src, Ipp64fc* dst, const IppsFFTSpec_C_64fc* spec, Ipp8u* work) {
    return Transform(src, dst, spec, work, false);
}

IppStatus ippsFFTInv_CToC_64fc(const Ipp64fc* src, Ipp64fc* dst, const IppsFFTSpec_C_64fc* spec, Ipp8u* work) {
    return Transform(src, dst, spec, work, true);
}

IppStatus ippsFFTFwdWindowed_CToC_64fc(const Ipp64fc* src, const Ipp64fc* window, int conjugate, Ipp64fc* dst,
                                       const IppsFFTSpec_C_64fc* spec, Ipp8u* work) {
    if (const IppStatus refused = Refusal(spec, src, window, dst, work)) return refused;
    qor_prim::FftRunWindowed(*spec, src, window, conjugate != 0, dst, work);
    return ippStsNoErr;
}

IppStatus ippsFFTFwdWindowedPower_64fc(const Ipp64fc* src, const Ipp64fc* window, int conjugate, Ipp64fc* scratch,
                                       Ipp64f* power, const IppsFFTSpec_C_64fc* spec, Ipp8u* work) {
    if (const IppStatus refused = Refusal(spec, src, window, scratch, power, work)) return refused;
    qor_prim::FftRunWindowedPower(*spec, src, window, conjugate != 0, scratch, power, work);
    return ippStsNoErr;
}
