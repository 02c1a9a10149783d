#include "ipps_tone.h"

#include <cmath>

#include "complex_kernels.h"
#include "dispatch_row.h"
#include "ipp_check.h"

namespace {

constexpr long double kTwoPiL = 6.283185307179586476925286766559L;
constexpr double kTwoPi = 6.283185307179586476925286766559;
// Samples per block: each block starts from its own cos and sin and rotates
// by a table of the first kBlock steps.
constexpr int kBlockBits = 6;
constexpr int kBlock = 1 << kBlockBits;
// Samples per segment: each segment starts from its own cos and sin; its
// blocks follow by rotations in long double, whose error over a segment
// stays far below an ulp of the output, so the error is a few ulps at any length.
constexpr int kSegment = 4096;

struct LongComplex {
    long double re, im;
};

LongComplex Times(LongComplex a, LongComplex b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

// The angle 2 pi frequency n, with the whole turns of frequency n removed first.
long double TurnAngle(double frequency, long long n) {
    const long double turns = static_cast<long double>(frequency) * static_cast<long double>(n);
    return kTwoPiL * (turns - std::floor(turns));
}

// The rotation by n samples from `phase`, in long double: the steps that are
// multiplied up carry no rounding of a double angle along.
LongComplex Rotation(double frequency, long long n, double phase = 0.0) {
    const long double a = TurnAngle(frequency, n) + phase;
    return {std::cos(a), std::sin(a)};
}

constexpr qor_prim::DispatchRow<qor_prim::MulConstKernel> kRotate(qor_prim::MulConstGeneric,
                                                                  qor_prim::MulConstGeneric,
                                                                  qor_prim::MulConstAvx512);

}  // namespace

IppStatus ippsTone_64fc(Ipp64fc* dst, int length, Ipp64f magnitude, Ipp64f frequency, Ipp64f* phase,
                        IppHintAlgorithm /*hint*/) {
    if (qor_prim::AnyNull(dst, phase)) return ippStsNullPtrErr;
    if (length < 1) return ippStsSizeErr;
    if (!(magnitude > 0.0)) return ippStsToneMagnErr;
    if (!(frequency >= 0.0 && frequency < 1.0)) return ippStsToneFreqErr;
    if (!(*phase >= 0.0 && *phase < kTwoPi)) return ippStsTonePhaseErr;

    const double start = *phase;
    // The steps within a block: the powers of two from their angles, the
    // others their products, all in long double.
    LongComplex power[kBlockBits];
    for (int k = 0; k < kBlockBits; ++k) power[k] = Rotation(frequency, 1LL << k);
    LongComplex longStep[kBlock];
    Ipp64fc step[kBlock];
    const int stepCount = length < kBlock ? length : kBlock;
    longStep[0] = {1.0L, 0.0L};
    step[0] = {1.0, 0.0};
    for (int i = 1; i < stepCount; ++i) {
        const int low = i & -i;
        longStep[i] = Times(longStep[i - low], power[__builtin_ctz(low)]);
        step[i] = {static_cast<double>(longStep[i].re), static_cast<double>(longStep[i].im)};
    }
    const LongComplex advance = Rotation(frequency, kBlock);
    const qor_prim::MulConstKernel rotate = kRotate.Pick();
    for (int segment = 0; segment < length; segment += kSegment) {
        const LongComplex exact = Rotation(frequency, segment, start);
        LongComplex anchor = {magnitude * exact.re, magnitude * exact.im};
        const int end = length - segment < kSegment ? length : segment + kSegment;
        for (int base = segment; base < end; base += kBlock) {
            const Ipp64fc from = {static_cast<double>(anchor.re), static_cast<double>(anchor.im)};
            rotate(step, from, dst + base, end - base < kBlock ? end - base : kBlock);
            anchor = Times(anchor, advance);
        }
    }
    double next = std::fmod(static_cast<double>(TurnAngle(frequency, length) + start), kTwoPi);
    if (!(next >= 0.0 && next < kTwoPi)) next = 0.0;
    *phase = next;
    return ippStsNoErr;
}
