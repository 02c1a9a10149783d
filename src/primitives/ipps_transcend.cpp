#include "ipps_transcend.h"

#include <cmath>

#include "dispatch_row.h"
#include "ipp_check.h"
#include "transcend_kernels.h"

using qor_prim::CheckVector;

namespace qor_prim {

int LnClassified(double x, double* y) {
    *y = std::log(x);
    return x == 0.0 ? kLnSawZero : x < 0.0 ? kLnSawNegative : 0;
}

int LnGeneric64(const double* src, double* dst, int length) {
    int seen = 0;
    for (int i = 0; i < length; ++i) seen |= LnClassified(src[i], dst + i);
    return seen;
}

void LnGeneric32(const float* src, float* dst, int length) {
    for (int i = 0; i < length; ++i) dst[i] = static_cast<float>(std::log(static_cast<double>(src[i])));
}

}  // namespace qor_prim

namespace {

constexpr qor_prim::DispatchRow<qor_prim::LnKernel64> kLn64(qor_prim::LnGeneric64, qor_prim::LnAvx2_64,
                                                              qor_prim::LnAvx512_64);
constexpr qor_prim::DispatchRow<qor_prim::LnKernel32> kLn32(qor_prim::LnGeneric32, qor_prim::LnAvx2_32);

}  // namespace

IppStatus ippsLn_64f(const Ipp64f* src, Ipp64f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    const int seen = kLn64.Pick()(src, dst, length);
    if (seen & qor_prim::kLnSawNegative) return ippStsLnNegArg;
    return seen & qor_prim::kLnSawZero ? ippStsLnZeroArg : ippStsNoErr;
}

IppStatus ippsLn_32f_A11(const Ipp32f* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    kLn32.Pick()(src, dst, length);
    return ippStsNoErr;
}

IppStatus ippsSqrt_32f_A11(const Ipp32f* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = std::sqrt(src[i]);
    return ippStsNoErr;
}

IppStatus ippsExp_32f_A21(const Ipp32f* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = std::exp(src[i]);
    return ippStsNoErr;
}

IppStatus ippsExp_64f_I(Ipp64f* array, int length) {
    if (IppStatus s = CheckVector(length, array)) return s;
    for (int i = 0; i < length; ++i) array[i] = std::exp(array[i]);
    return ippStsNoErr;
}
