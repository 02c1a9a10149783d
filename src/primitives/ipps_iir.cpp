#include "ipps_iir.h"

#include <cstdint>

#include "ipp_check.h"

namespace {

constexpr int kMaxOrder = 12;
constexpr uint64_t kIirMagic = 0x11A5C0DE32F00001ULL;
constexpr uintptr_t kAlign = 64;

// The first order written as y = (b0 x + b1 x') - a1 y': one product and one
// difference on the path from one output to the next, instead of the three
// operations of the transposed form, which is the state kept between calls.
void FirstOrder(const Ipp32f* src, Ipp32f* dst, int length, const double* b, double a1, double& z) {
    double x = src[0];
    double y = b[0] * x + z;
    dst[0] = static_cast<Ipp32f>(y);
    for (int n = 1; n < length; ++n) {
        const double next = src[n];
        y = (b[0] * next + b[1] * x) - a1 * y;
        x = next;
        dst[n] = static_cast<Ipp32f>(y);
    }
    z = b[1] * x - a1 * y;
}

}  // namespace

struct IppsIIRState_32f {
    uint64_t magic;
    int order;
    double b[kMaxOrder + 1];
    double a[kMaxOrder + 1];
    double z[kMaxOrder];
};

IppStatus ippsIIRGetStateSize_32f(int order, int* size) {
    if (size == nullptr) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxOrder) return ippStsIIROrderErr;
    *size = static_cast<int>(sizeof(IppsIIRState_32f) + kAlign);
    return ippStsNoErr;
}

IppStatus ippsIIRInit_32f(IppsIIRState_32f** state, const Ipp32f* taps, int order, const Ipp32f* delayLine,
                          Ipp8u* memory) {
    if (qor_prim::AnyNull(state, taps, memory)) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxOrder) return ippStsIIROrderErr;
    const double a0 = taps[order + 1];
    if (a0 == 0.0) return ippStsDivByZeroErr;
    const uintptr_t address = (reinterpret_cast<uintptr_t>(memory) + kAlign - 1) & ~(kAlign - 1);
    auto* s = reinterpret_cast<IppsIIRState_32f*>(address);
    *s = IppsIIRState_32f{};
    s->magic = kIirMagic;
    s->order = order;
    for (int i = 0; i <= order; ++i) {
        s->b[i] = taps[i] / a0;
        s->a[i] = taps[order + 1 + i] / a0;
    }
    for (int i = 0; i < order; ++i) s->z[i] = delayLine ? delayLine[i] : 0.0;
    *state = s;
    return ippStsNoErr;
}

IppStatus ippsIIR_32f(const Ipp32f* src, Ipp32f* dst, int length, IppsIIRState_32f* state) {
    if (IppStatus s = qor_prim::CheckVector(length, src, dst, state)) return s;
    if (state->magic != kIirMagic) return ippStsContextMatchErr;
    const int order = state->order;
    double* z = state->z;
    const double* b = state->b;
    const double* a = state->a;
    if (order == 1) {
        FirstOrder(src, dst, length, b, a[1], z[0]);
        return ippStsNoErr;
    }
    for (int n = 0; n < length; ++n) {
        const double x = src[n];
        const double y = b[0] * x + z[0];
        for (int i = 0; i + 1 < order; ++i) z[i] = b[i + 1] * x - a[i + 1] * y + z[i + 1];
        z[order - 1] = b[order] * x - a[order] * y;
        dst[n] = static_cast<Ipp32f>(y);
    }
    return ippStsNoErr;
}
