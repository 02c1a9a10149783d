#include "ipps_complex.h"

#include <cmath>

#include "complex_kernels.h"
#include "dispatch_row.h"
#include "ipp_check.h"

using qor_prim::CheckVector;

namespace qor_prim {

void MulGeneric(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length) {
    for (int i = 0; i < length; ++i) {
        const Ipp64fc x = a[i], y = b[i];
        d[i] = {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
    }
}

void MulConstGeneric(const Ipp64fc* a, Ipp64fc c, Ipp64fc* d, int length) {
    for (int i = 0; i < length; ++i) d[i] = {c.re * a[i].re - c.im * a[i].im, c.re * a[i].im + c.im * a[i].re};
}

void PowerGeneric(const Ipp64fc* src, Ipp64f* dst, int length) {
    for (int i = 0; i < length; ++i) dst[i] = src[i].re * src[i].re + src[i].im * src[i].im;
}

void MagnitudeGeneric_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    for (int i = 0; i < length; ++i) {
        const double re = src[i].re, im = src[i].im;
        dst[i] = static_cast<Ipp32f>(std::sqrt(re * re + im * im));
    }
}

void PhaseGeneric_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    for (int i = 0; i < length; ++i) dst[i] = std::atan2(src[i].im, src[i].re);
}

}  // namespace qor_prim

namespace {

constexpr qor_prim::DispatchRow<qor_prim::MulKernel> kMul(qor_prim::MulGeneric, qor_prim::MulAvx2,
                                                                qor_prim::MulAvx512);
constexpr qor_prim::DispatchRow<qor_prim::PowerKernel> kPower(qor_prim::PowerGeneric, qor_prim::PowerAvx2);
constexpr qor_prim::DispatchRow<qor_prim::PolarKernel> kMagnitude(qor_prim::MagnitudeGeneric_32fc,
                                                                   qor_prim::MagnitudeAvx2_32fc,
                                                                   qor_prim::MagnitudeAvx512_32fc);
constexpr qor_prim::DispatchRow<qor_prim::PolarKernel> kPhase(qor_prim::PhaseGeneric_32fc, qor_prim::PhaseAvx2_32fc);

}  // namespace

IppStatus ippsMul_64fc(const Ipp64fc* a, const Ipp64fc* b, Ipp64fc* d, int length) {
    if (IppStatus s = CheckVector(length, a, b, d)) return s;
    kMul.Pick()(a, b, d, length);
    return ippStsNoErr;
}

IppStatus ippsMul_64fc_I(const Ipp64fc* src, Ipp64fc* array, int length) { return ippsMul_64fc(array, src, array, length); }

IppStatus ippsConj_64fc(const Ipp64fc* src, Ipp64fc* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = {src[i].re, -src[i].im};
    return ippStsNoErr;
}

IppStatus ippsMagnitude_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    kMagnitude.Pick()(src, dst, length);
    return ippStsNoErr;
}

IppStatus ippsMagnitude_64fc(const Ipp64fc* src, Ipp64f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = std::hypot(src[i].re, src[i].im);
    return ippStsNoErr;
}

IppStatus ippsPowerSpectr_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = src[i].re * src[i].re + src[i].im * src[i].im;
    return ippStsNoErr;
}

IppStatus ippsPowerSpectr_64fc(const Ipp64fc* src, Ipp64f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    kPower.Pick()(src, dst, length);
    return ippStsNoErr;
}

IppStatus ippsPhase_32fc(const Ipp32fc* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    kPhase.Pick()(src, dst, length);
    return ippStsNoErr;
}
