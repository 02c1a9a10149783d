#include "rbw_filter.h"

#include <cmath>

namespace qor {

FftPlan::FftPlan(int order) {
    int specSize = 0, initSize = 0, workSize = 0;
    ippsFFTGetSize_C_64fc(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, &specSize, &initSize, &workSize);
    specMemory_.Allocate(specSize);
    initMemory_.Allocate(initSize);
    work_.Allocate(workSize);
    ippsFFTInit_C_64fc(&spec_, order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, specMemory_.get(), initMemory_.get());
}

IppStatus FftPlan::Forward(const Ipp64fc* source, Ipp64fc* destination) {
    return ippsFFTFwd_CToC_64fc(source, destination, spec_, work_.get());
}

IppStatus FftPlan::Inverse(const Ipp64fc* source, Ipp64fc* destination) {
    return ippsFFTInv_CToC_64fc(source, destination, spec_, work_.get());
}

IppStatus FftPlan::ForwardWindowed(const Ipp64fc* source, const Ipp64fc* window, Ipp64fc* destination,
                                   bool conjugate) {
    return ippsFFTFwdWindowed_CToC_64fc(source, window, conjugate ? 1 : 0, destination, spec_, work_.get());
}

IppStatus FftPlan::ForwardWindowedPower(const Ipp64fc* source, const Ipp64fc* window, bool conjugate,
                                        Ipp64fc* scratch, double* power) {
    return ippsFFTFwdWindowedPower_64fc(source, window, conjugate ? 1 : 0, scratch, power, spec_, work_.get());
}

RbwGeometry RbwGeometryFor(double rbw, int32_t shape, double sampleRate, bool capFftSize) {
    RbwGeometry g;
    if (rbw > kDirectPowerRbw) {
        g.fftSize = 1;
        return g;
    }
    if (shape == RbwShapeGaussian) {
        // The window takes L samples; the FFT is at least twice as long.
        const int64_t length = static_cast<int64_t>(std::trunc(sampleRate * 2.65 / rbw));
        int64_t half = 1;
        while (half <= length - 1) half *= 2;
        g.fftSize = static_cast<int32_t>(2 * half);
        g.zeroPad = static_cast<int32_t>(2 * half - length);
        while ((int64_t{1} << g.fftOrder) < g.fftSize) ++g.fftOrder;
    } else {
        g.fftOrder = static_cast<int32_t>(std::ceil(std::log(sampleRate / (rbw / 3.2)) / std::log(2.0)));
        g.fftSize = int32_t{1} << g.fftOrder;
        g.cutoffBins = rbw * 0.625 * g.fftSize / sampleRate;
    }
    if (capFftSize && g.fftSize > 256) {
        g.fftSize = 256;
        g.zeroPad = 0;
        g.fftOrder = 8;
    }
    return g;
}

void ConfinedGaussianWindow(double* taps, int length) {
    const double sigma = 0.1;
    const double center = (length - 1) / 2.0;
    const auto g = [&](double x) {
        const double u = (x - center) / (2.0 * sigma * length);
        return std::exp(-u * u);
    };
    // The half-integer arguments of the published approximation, truncated.
    const double k = g(0) / (g(length - 1) + g(-length));
    for (int n = 0; n < length; ++n) taps[n] = g(n) - k * (g(n + length) + g(n - length));
}

RbwFilter::RbwFilter(double rbw, int32_t shape, double sampleRate, int32_t units, bool capFftSize)
    : units(units) {
    const RbwGeometry g = RbwGeometryFor(rbw, shape, sampleRate, capFftSize);
    fftOrder = g.fftOrder;
    fftSize = g.fftSize;
    zeroPad = g.zeroPad;
    cutoffBins = g.cutoffBins;
    if (fftSize == 1) return;

    const int n = fftSize;
    complexWindow.Allocate(n);
    workSamples.Allocate(n);
    workSpectrum.Allocate(n);
    fftPlan = std::make_unique<FftPlan>(fftOrder);
    double* taps = workSpectrum.get();
    ippsZero_64f(taps, n);
    if (shape == RbwShapeGaussian) {
        ConfinedGaussianWindow(taps, n - zeroPad);
    } else {
        ippsFIRGenLowpass_64f(cutoffBins / n, taps, n, ippWinBlackman, ippFalse);
    }
    // Unit gain at DC after the FFT's division by N: a tone on a bin keeps its
    // amplitude. The flat top has negative taps; the sum is signed.
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += taps[i];
    ippsMulC_64f_I(n / sum, taps, n);
    for (int i = 0; i < n; ++i) complexWindow[static_cast<std::size_t>(i)] = {taps[i], taps[i]};
}

}  // namespace qor
