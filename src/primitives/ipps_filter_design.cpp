#include "ipps_filter_design.h"

#include <cmath>
#include <complex>

#include "window_shapes.h"

using qor_prim::kPi;

namespace {

double WindowPoint(IppWinType window, int k, int count) {
    const double x = 2.0 * kPi * k / (count - 1);
    switch (window) {
        case ippWinBartlett: return 1.0 - std::fabs(2.0 * k / (count - 1) - 1.0);
        case ippWinBlackman: {
            const double c = 0.5 / std::cos(kPi / (count - 1));
            return qor_prim::BlackmanPoint(-c * c, k, count);
        }
        case ippWinHamming: return 0.54 - 0.46 * std::cos(x);
        case ippWinHann: return 0.5 - 0.5 * std::cos(x);
        default: return 1.0;
    }
}

using Complex = std::complex<long double>;
constexpr int kMaxOrder = 12;

// The analog low-pass prototype of cut-off 1 rad/s: poles and gain.
long double PrototypePoles(IppsIIRFilterType family, int order, long double ripple, Complex* poles) {
    const long double pi = 3.141592653589793238462643383279502884L;
    if (family == ippButterworth) {
        for (int i = 0; i < order; ++i) {
            const long double theta = pi * (2 * i - order + 1) / (2.0L * order);
            poles[i] = -std::exp(Complex(0.0L, theta));
        }
        return 1.0L;
    }
    const long double eps = std::sqrt(std::pow(10.0L, 0.1L * ripple) - 1.0L);
    const long double mu = std::asinh(1.0L / eps) / order;
    Complex gain = 1.0L;
    for (int i = 0; i < order; ++i) {
        const long double theta = pi * (2 * i - order + 1) / (2.0L * order);
        poles[i] = -std::sinh(Complex(mu, theta));
        gain *= -poles[i];
    }
    long double k = gain.real();
    if (order % 2 == 0) k /= std::sqrt(1.0L + eps * eps);
    return k;
}

// Coefficients of prod (z - roots[i]), highest power first: order + 1 values.
void ExpandRoots(const Complex* roots, int order, Complex* poly) {
    poly[0] = 1.0L;
    for (int i = 1; i <= order; ++i) poly[i] = 0.0L;
    for (int i = 0; i < order; ++i) {
        for (int j = i + 1; j >= 1; --j) poly[j] -= roots[i] * poly[j - 1];
    }
}

IppStatus DesignIir(double cutoff, double ripple, int order, double* taps, IppsIIRFilterType family, bool highPass) {
    if (taps == nullptr) return ippStsNullPtrErr;
    if (order < 1 || order > kMaxOrder) return ippStsIIROrderErr;
    if (!(cutoff > 0.0 && cutoff < 0.5)) return ippStsFilterFrequencyErr;
    if (family != ippButterworth && family != ippChebyshev1) return ippStsBadArgErr;
    if (family == ippChebyshev1 && !(ripple > 0.0)) return ippStsRippleErr;

    Complex poles[kMaxOrder];
    long double gain = PrototypePoles(family, order, ripple, poles);
    // Pre-warped analog cut-off for the bilinear transform s = 2 (z - 1) / (z + 1).
    const long double warped = 2.0L * std::tan(3.141592653589793238462643383279502884L * cutoff);
    if (highPass) {
        // s -> warped / s: the poles invert and n zeros appear at s = 0.
        Complex negativeProduct = 1.0L;
        for (int i = 0; i < order; ++i) {
            negativeProduct *= -poles[i];
            poles[i] = warped / poles[i];
        }
        gain = (Complex(gain) / negativeProduct).real();
    } else {
        for (int i = 0; i < order; ++i) poles[i] *= warped;
        gain *= std::pow(warped, static_cast<long double>(order));
    }
    // Bilinear transform: s = p maps to z = (2 + p) / (2 - p); zeros at infinity
    // go to z = -1, zeros at s = 0 to z = 1.
    Complex digitalPoles[kMaxOrder], digitalZeros[kMaxOrder];
    Complex ratio = 1.0L;
    for (int i = 0; i < order; ++i) {
        digitalPoles[i] = (2.0L + poles[i]) / (2.0L - poles[i]);
        digitalZeros[i] = highPass ? 1.0L : -1.0L;
        ratio *= (highPass ? 2.0L : 1.0L) / (2.0L - poles[i]);
    }
    const long double digitalGain = gain * ratio.real();
    Complex b[kMaxOrder + 1], a[kMaxOrder + 1];
    ExpandRoots(digitalZeros, order, b);
    ExpandRoots(digitalPoles, order, a);
    for (int i = 0; i <= order; ++i) {
        taps[i] = static_cast<double>(digitalGain * b[i].real());
        taps[order + 1 + i] = static_cast<double>(a[i].real());
    }
    return ippStsNoErr;
}

}  // namespace

IppStatus ippsFIRGenLowpass_64f(Ipp64f cutoff, Ipp64f* taps, int tapCount, IppWinType window, IppBool normalise) {
    if (taps == nullptr) return ippStsNullPtrErr;
    if (tapCount < 5 || !(cutoff > 0.0 && cutoff < 0.5)) return ippStsSizeErr;
    const double centre = (tapCount - 1) / 2.0;
    for (int k = 0; k < (tapCount + 1) / 2; ++k) {
        const double d = k - centre;
        const double ideal = d == 0.0 ? 2.0 * cutoff : std::sin(2.0 * kPi * cutoff * d) / (kPi * d);
        taps[k] = ideal * WindowPoint(window, k, tapCount);
        taps[tapCount - 1 - k] = taps[k];
    }
    if (normalise != ippFalse) {
        double sum = 0.0;
        for (int k = 0; k < tapCount; ++k) sum += taps[k];
        const double scale = 1.0 / std::fabs(sum);
        for (int k = 0; k < tapCount; ++k) taps[k] *= scale;
    }
    return ippStsNoErr;
}

IppStatus ippsIIRGenLowpass_64f(Ipp64f cutoff, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType family) {
    return DesignIir(cutoff, ripple, order, taps, family, false);
}

IppStatus ippsIIRGenHighpass_64f(Ipp64f cutoff, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType family) {
    return DesignIir(cutoff, ripple, order, taps, family, true);
}
