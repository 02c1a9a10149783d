#include "realtime_window.h"

#include <cmath>

namespace qor {
namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;
// N at or above this many RBWs of samples; the window this long.
constexpr double kFftRbws = 3.2;
constexpr double kWindowRbws = 2.02;

double NuttallTap(int i, int length) {
    const double x = kTwoPi * i / (length - 1);
    return 0.355768 - 0.487396 * std::cos(x) + 0.144232 * std::cos(2 * x) - 0.012604 * std::cos(3 * x);
}

}  // namespace

RealTimeWindow::RealTimeWindow(double rbw, double sampleRate) {
    fftOrder = static_cast<int32_t>(std::ceil(std::log(sampleRate / (rbw / kFftRbws)) / std::log(2.0)));
    fftSize = 1 << fftOrder;
    windowLength = static_cast<int32_t>(fftSize * (kWindowRbws / (fftSize * rbw / sampleRate)));
    complexWindow.Allocate(windowLength);
    workSamples.Allocate(fftSize);
    taps.Allocate(fftSize);
    spectrum.Allocate(fftSize);
    spectrumF.Allocate(fftSize);
    double sum = 0.0;
    for (int i = 0; i < fftSize; ++i) {
        // The taps as single precision would hold them.
        taps[i] = i < windowLength ? static_cast<float>(NuttallTap(i, windowLength)) : 0.0;
        sum += taps[i];
    }
    const double gain = fftSize / sum;
    for (int i = 0; i < windowLength; ++i) {
        taps[i] *= gain;
        complexWindow[i] = {taps[i], taps[i]};
    }
    plan = std::make_unique<FftPlan>(fftOrder);
}

void RealTimeWindow::SpanPower(const Ipp64fc* samples, int firstBin, int spanBins, Ipp32f* power) {
    const int half = fftSize / 2;
    ippsMul_64fc(samples, complexWindow.get(), workSamples.get(), windowLength);
    ippsZero_64fc(workSamples.get() + windowLength, fftSize - windowLength);
    plan->Forward(workSamples.get(), workSamples.get());
    ippsCopy_64fc(workSamples.get(), spectrum.get() + half, half);
    ippsCopy_64fc(workSamples.get() + half, spectrum.get(), half);
    ippsConvert_64f32f(reinterpret_cast<const Ipp64f*>(spectrum.get() + firstBin),
                       reinterpret_cast<Ipp32f*>(spectrumF.get()), 2 * spanBins);
    ippsPowerSpectr_32fc(spectrumF.get(), power, spanBins);
}

}  // namespace qor
