#include "ipps_convert.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "convert_kernels.h"
#include "dispatch_row.h"
#include "ipp_check.h"

using qor_prim::CheckVector;

namespace {

template <typename T>
IppStatus Zero(T* dst, int length) {
    if (IppStatus s = CheckVector(length, dst)) return s;
    std::memset(static_cast<void*>(dst), 0, sizeof(T) * static_cast<size_t>(length));
    return ippStsNoErr;
}

template <typename T>
IppStatus Copy(const T* src, T* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    std::memcpy(static_cast<void*>(dst), src, sizeof(T) * static_cast<size_t>(length));
    return ippStsNoErr;
}

template <typename From, typename To>
void WidenValues(const From* src, To* dst, int length, To factor) {
    for (int i = 0; i < length; ++i) dst[i] = static_cast<To>(src[i]) * factor;
}

template <typename From, typename To>
IppStatus Widen(const From* src, To* dst, int length, To factor) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    WidenValues(src, dst, length, factor);
    return ippStsNoErr;
}

}  // namespace

IppStatus ippsZero_32s(Ipp32s* dst, int length) { return Zero(dst, length); }
IppStatus ippsZero_32f(Ipp32f* dst, int length) { return Zero(dst, length); }
IppStatus ippsZero_64f(Ipp64f* dst, int length) { return Zero(dst, length); }
IppStatus ippsZero_64fc(Ipp64fc* dst, int length) { return Zero(dst, length); }

IppStatus ippsCopy_32s(const Ipp32s* src, Ipp32s* dst, int length) { return Copy(src, dst, length); }
IppStatus ippsCopy_32f(const Ipp32f* src, Ipp32f* dst, int length) { return Copy(src, dst, length); }
IppStatus ippsCopy_64f(const Ipp64f* src, Ipp64f* dst, int length) { return Copy(src, dst, length); }
IppStatus ippsCopy_64fc(const Ipp64fc* src, Ipp64fc* dst, int length) { return Copy(src, dst, length); }

IppStatus ippsMove_32f(const Ipp32f* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    std::memmove(dst, src, sizeof(Ipp32f) * static_cast<size_t>(length));
    return ippStsNoErr;
}

IppStatus ippsConvert_32f64f(const Ipp32f* src, Ipp64f* dst, int length) { return Widen(src, dst, length, 1.0); }
IppStatus ippsConvert_32s32f(const Ipp32s* src, Ipp32f* dst, int length) { return Widen(src, dst, length, 1.0f); }

IppStatus ippsConvert_64f32f(const Ipp64f* src, Ipp32f* dst, int length) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    for (int i = 0; i < length; ++i) dst[i] = static_cast<Ipp32f>(src[i]);
    return ippStsNoErr;
}

namespace qor_prim {

void Widen16sGeneric(const Ipp16s* src, Ipp64f* dst, int length, double factor) {
    WidenValues(src, dst, length, factor);
}

int CountInRange16sGeneric(const Ipp16s* src, int length, Ipp16s lower, Ipp16s upper) {
    int count = 0;
    for (int i = 0; i < length; ++i) count += src[i] >= lower && src[i] <= upper;
    return count;
}

}  // namespace qor_prim

namespace {

constexpr qor_prim::DispatchRow<qor_prim::WidenKernel> kWiden16s(qor_prim::Widen16sGeneric, qor_prim::Widen16sAvx2);
constexpr qor_prim::DispatchRow<qor_prim::CountInRangeKernel> kCountInRange16s(qor_prim::CountInRange16sGeneric,
                                                                               qor_prim::CountInRange16sAvx2);

}  // namespace

IppStatus ippsConvert_16s64f_Sfs(const Ipp16s* src, Ipp64f* dst, int length, int scaleFactor) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    kWiden16s.Pick()(src, dst, length, std::ldexp(1.0, -scaleFactor));
    return ippStsNoErr;
}

IppStatus ippsCountInRange_16s(const Ipp16s* src, int length, int* count, Ipp16s lower, Ipp16s upper) {
    if (IppStatus s = CheckVector(length, src, count)) return s;
    *count = kCountInRange16s.Pick()(src, length, lower, upper);
    return ippStsNoErr;
}

IppStatus ippsConvert_32f32s_Sfs(const Ipp32f* src, Ipp32s* dst, int length, IppRoundMode rounding,
                                 int scaleFactor) {
    if (IppStatus s = CheckVector(length, src, dst)) return s;
    if (rounding != ippRndNear && rounding != ippRndZero) return ippStsBadArgErr;
    const double factor = std::ldexp(1.0, -scaleFactor);
    constexpr double lo = std::numeric_limits<Ipp32s>::min();
    constexpr double hi = std::numeric_limits<Ipp32s>::max();
    for (int i = 0; i < length; ++i) {
        // A float times a power of two is exact in double, so only the rounding rounds.
        const double v = static_cast<double>(src[i]) * factor;
        const double r = rounding == ippRndNear ? std::nearbyint(v) : std::trunc(v);
        dst[i] = std::isnan(r) ? 0 : r <= lo ? std::numeric_limits<Ipp32s>::min()
                                  : r >= hi ? std::numeric_limits<Ipp32s>::max()
                                            : static_cast<Ipp32s>(r);
    }
    return ippStsNoErr;
}
