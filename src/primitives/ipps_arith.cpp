#include "ipps_arith.h"

#include <cstdint>
#include <limits>

#include "ipp_check.h"

// Plain loops that the compiler vectorises for the baseline processor.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC optimize("O3")
#endif

using qor_prim::CheckVector;

namespace {

template <typename T, typename Op>
IppStatus Binary(const T* a, const T* b, T* d, int length, Op op) {
    if (IppStatus s = CheckVector(length, a, b, d)) return s;
    for (int i = 0; i < length; ++i) d[i] = op(a[i], b[i]);
    return ippStsNoErr;
}

template <typename T, typename Op>
IppStatus Unary(const T* src, T* d, int length, Op op) {
    if (IppStatus s = CheckVector(length, src, d)) return s;
    for (int i = 0; i < length; ++i) d[i] = op(src[i]);
    return ippStsNoErr;
}

// A 64-bit value times 2^-scaleFactor, rounded to nearest (ties to even) and saturated.
Ipp32s ScaleSaturate(int64_t v, int scaleFactor) {
    if (scaleFactor > 0) {
        if (scaleFactor > 62) return 0;
        const int64_t half = int64_t{1} << (scaleFactor - 1);
        const int64_t floor = v >> scaleFactor;
        const int64_t rest = v - floor * (int64_t{1} << scaleFactor);
        v = floor + ((rest > half || (rest == half && (floor & 1))) ? 1 : 0);
    } else if (scaleFactor < 0) {
        const int shift = -scaleFactor > 32 ? 32 : -scaleFactor;
        v = v * (int64_t{1} << shift);
    }
    if (v > std::numeric_limits<Ipp32s>::max()) return std::numeric_limits<Ipp32s>::max();
    if (v < std::numeric_limits<Ipp32s>::min()) return std::numeric_limits<Ipp32s>::min();
    return static_cast<Ipp32s>(v);
}

}  // namespace

IppStatus ippsAdd_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length) {
    return Binary(a, b, d, length, [](Ipp32f x, Ipp32f y) { return x + y; });
}
IppStatus ippsAdd_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length) {
    return Binary(a, b, d, length, [](Ipp64f x, Ipp64f y) { return x + y; });
}
IppStatus ippsAdd_32u(const Ipp32u* a, const Ipp32u* b, Ipp32u* d, int length) {
    return Binary(a, b, d, length, [](Ipp32u x, Ipp32u y) {
        const Ipp32u sum = x + y;
        return sum < x ? std::numeric_limits<Ipp32u>::max() : sum;
    });
}
IppStatus ippsSub_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length) {
    return Binary(a, b, d, length, [](Ipp64f x, Ipp64f y) { return y - x; });
}
IppStatus ippsSub_32s_Sfs(const Ipp32s* a, const Ipp32s* b, Ipp32s* d, int length, int scaleFactor) {
    return Binary(a, b, d, length, [scaleFactor](Ipp32s x, Ipp32s y) {
        return ScaleSaturate(int64_t{y} - int64_t{x}, scaleFactor);
    });
}
IppStatus ippsMul_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length) {
    return Binary(a, b, d, length, [](Ipp32f x, Ipp32f y) { return x * y; });
}
IppStatus ippsMul_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length) {
    return Binary(a, b, d, length, [](Ipp64f x, Ipp64f y) { return x * y; });
}
IppStatus ippsMinEvery_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length) {
    return Binary(a, b, d, length, [](Ipp64f x, Ipp64f y) { return y < x ? y : x; });
}
IppStatus ippsMaxEvery_64f(const Ipp64f* a, const Ipp64f* b, Ipp64f* d, int length) {
    return Binary(a, b, d, length, [](Ipp64f x, Ipp64f y) { return y > x ? y : x; });
}
IppStatus ippsMaxEvery_32f(const Ipp32f* a, const Ipp32f* b, Ipp32f* d, int length) {
    return Binary(a, b, d, length, [](Ipp32f x, Ipp32f y) { return y > x ? y : x; });
}

IppStatus ippsAddC_32f(const Ipp32f* src, Ipp32f value, Ipp32f* d, int length) {
    return Unary(src, d, length, [value](Ipp32f x) { return x + value; });
}
IppStatus ippsAddC_64f(const Ipp64f* src, Ipp64f value, Ipp64f* d, int length) {
    return Unary(src, d, length, [value](Ipp64f x) { return x + value; });
}
// Constant 0 clears even where the source holds infinities or NaN.
IppStatus ippsMulC_32f(const Ipp32f* src, Ipp32f value, Ipp32f* d, int length) {
    if (value == 0.0f) return Unary(src, d, length, [](Ipp32f) { return 0.0f; });
    return Unary(src, d, length, [value](Ipp32f x) { return x * value; });
}
IppStatus ippsMulC_64f(const Ipp64f* src, Ipp64f value, Ipp64f* d, int length) {
    if (value == 0.0) return Unary(src, d, length, [](Ipp64f) { return 0.0; });
    return Unary(src, d, length, [value](Ipp64f x) { return x * value; });
}
IppStatus ippsAddC_32f_I(Ipp32f value, Ipp32f* array, int length) { return ippsAddC_32f(array, value, array, length); }
IppStatus ippsAddC_64f_I(Ipp64f value, Ipp64f* array, int length) { return ippsAddC_64f(array, value, array, length); }
IppStatus ippsMulC_32f_I(Ipp32f value, Ipp32f* array, int length) { return ippsMulC_32f(array, value, array, length); }
IppStatus ippsMulC_64f_I(Ipp64f value, Ipp64f* array, int length) { return ippsMulC_64f(array, value, array, length); }

IppStatus ippsSqr_64f(const Ipp64f* src, Ipp64f* d, int length) {
    return Unary(src, d, length, [](Ipp64f x) { return x * x; });
}

IppStatus ippsThreshold_LTValGTVal_32s(const Ipp32s* src, Ipp32s* d, int length, Ipp32s levelLT, Ipp32s valueLT,
                                       Ipp32s levelGT, Ipp32s valueGT) {
    if (IppStatus s = CheckVector(length, src, d)) return s;
    if (levelLT > levelGT) return ippStsBadArgErr;
    for (int i = 0; i < length; ++i) {
        const Ipp32s v = src[i];
        d[i] = v < levelLT ? valueLT : v > levelGT ? valueGT : v;
    }
    return ippStsNoErr;
}
