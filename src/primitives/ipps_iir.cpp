#include "ipps_iir.h"

#include <cmath>
#include <cstdint>

#include "first_order_lanes.h"
#include "ipp_check.h"

namespace {

constexpr int kMaxOrder = 12;
constexpr uint64_t kIirMagic = 0x11A5C0DE32F00001ULL;
constexpr uintptr_t kAlign = 64;
// The first order in lanes: a block of kRecursionLanes stretches of up to
// kLaneLength samples. Blocks shorter than kLanesFrom samples run the plain
// recursion.
constexpr int kLaneLength = 512;
constexpr int kLanesFrom = 1024;

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

// The second order (the audio's high pass) with its state in registers, in
// the operations and order of the general form.
void SecondOrder(const Ipp32f* src, Ipp32f* dst, int length, const double* b, const double* a, double* z) {
    double z0 = z[0], z1 = z[1];
    for (int n = 0; n < length; ++n) {
        const double x = src[n];
        const double y = b[0] * x + z0;
        z0 = b[1] * x - a[1] * y + z1;
        z1 = b[2] * x - a[2] * y;
        dst[n] = static_cast<Ipp32f>(y);
    }
    z[0] = z0;
    z[1] = z1;
}

// The first order in lanes: the output is y[n] = c[n] + r y[n - 1] with
// c[n] = b0 x[n] + b1 x[n - 1] and r = -a1. For a stable pole only.
void FirstOrderLanes(const Ipp32f* src, Ipp32f* dst, int length, const double* b, double a1, double& z) {
    if (length < kLanesFrom) {
        FirstOrder(src, dst, length, b, a1, z);
        return;
    }
    double powers[kLaneLength];
    double power = 1.0;
    for (double& p : powers) p = power *= -a1;
    double w[qor_prim::kRecursionLanes * kLaneLength];
    for (int at = 0; at < length;) {
        const int rest = length - at;
        if (rest < kLanesFrom) {
            FirstOrder(src + at, dst + at, rest, b, a1, z);
            return;
        }
        constexpr int kLanes = qor_prim::kRecursionLanes;
        const int stretch = rest / kLanes < kLaneLength ? rest / kLanes : kLaneLength;
        const Ipp32f* x = src + at;
        const int count = kLanes * stretch;
        // c first, in one pass the compiler vectorises; the first sample from the state.
        w[0] = b[0] * x[0] + z;
        for (int n = 1; n < count; ++n) w[n] = b[0] * x[n] + b[1] * x[n - 1];
        qor_prim::RecurseInLanes(w, stretch, -a1, powers);
        z = b[1] * x[count - 1] - a1 * w[count - 1];  // before an output in place overwrites x
        for (int n = 0; n < count; ++n) dst[at + n] = static_cast<Ipp32f>(w[n]);
        at += count;
    }
}

}  // namespace

struct IppsIIRState_32f {
    uint64_t magic;
    int order;
    double b[kMaxOrder + 1];
    double a[kMaxOrder + 1];
    double z[kMaxOrder];
    bool lanes;  // a first order with a stable pole
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
    s->lanes = order == 1 && std::fabs(s->a[1]) < 1.0;
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
        if (state->lanes) {
            FirstOrderLanes(src, dst, length, b, a[1], z[0]);
        } else {
            FirstOrder(src, dst, length, b, a[1], z[0]);
        }
        return ippStsNoErr;
    }
    if (order == 2) {
        SecondOrder(src, dst, length, b, a, z);
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
