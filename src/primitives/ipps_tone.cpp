#include "ipps_tone.h"

#include <cmath>

#include "ipp_check.h"

namespace {

constexpr long double kTwoPiL = 6.283185307179586476925286766559L;
constexpr double kTwoPi = 6.283185307179586476925286766559;
// Samples per block: each block starts from an exact cos and sin and rotates
// by a small table, which keeps the error at a few ulps at any length.
constexpr int kBlock = 64;

// The angle 2 pi frequency n + phase, with the whole turns of frequency n removed first.
double Angle(double frequency, long long n, double phase) {
    const long double turns = static_cast<long double>(frequency) * static_cast<long double>(n);
    return static_cast<double>(kTwoPiL * (turns - std::floor(turns)) + phase);
}

}  // namespace

IppStatus ippsTone_64fc(Ipp64fc* dst, int length, Ipp64f magnitude, Ipp64f frequency, Ipp64f* phase,
                        IppHintAlgorithm /*hint*/) {
    if (qor_prim::AnyNull(dst, phase)) return ippStsNullPtrErr;
    if (length < 1) return ippStsSizeErr;
    if (!(magnitude > 0.0)) return ippStsToneMagnErr;
    if (!(frequency >= 0.0 && frequency < 1.0)) return ippStsToneFreqErr;
    if (!(*phase >= 0.0 && *phase < kTwoPi)) return ippStsTonePhaseErr;

    const double start = *phase;
    Ipp64fc step[kBlock];
    const int stepCount = length < kBlock ? length : kBlock;
    for (int i = 0; i < stepCount; ++i) {
        const double a = Angle(frequency, i, 0.0);
        step[i] = {std::cos(a), std::sin(a)};
    }
    for (int base = 0; base < length; base += kBlock) {
        const double a = Angle(frequency, base, start);
        const double c = magnitude * std::cos(a), s = magnitude * std::sin(a);
        const int count = length - base < kBlock ? length - base : kBlock;
        for (int i = 0; i < count; ++i) {
            dst[base + i] = {c * step[i].re - s * step[i].im, c * step[i].im + s * step[i].re};
        }
    }
    double next = std::fmod(Angle(frequency, length, start), kTwoPi);
    if (!(next >= 0.0 && next < kTwoPi)) next = 0.0;
    *phase = next;
    return ippStsNoErr;
}
