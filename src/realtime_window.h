// The window and transform of the real-time spectra: a Nuttall window 2.02
// sample rates per RBW long, at the start of an FFT of the next power of two
// at or above 3.2 sample rates per RBW; the rest of the FFT input is zero.
//
// The taps are normalised to a sum of N, so that a tone of amplitude A gives
// A in its bin after the transform's 1/N; each tap stands in both the real
// and the imaginary part of the complex window, which turns the samples by
// 45 degrees and raises their power by 3 dB, the 3 dB the corrections take
// off again.
//
// Plan then execute: everything is allocated here; SpanPower allocates
// nothing. One thread at a time (the work arrays are its scratch).
#ifndef QOR_REALTIME_WINDOW_H
#define QOR_REALTIME_WINDOW_H

#include <cstdint>
#include <memory>

#include "ipps.h"
#include "rbw_filter.h"
#include "smart_array.h"

namespace qor {

class RealTimeWindow {
public:
    RealTimeWindow(double rbw, double sampleRate);

    // The power of the `spanBins` bins from `firstBin` of the spectrum of the
    // FFT-length window of `samples`, the spectrum ordered from the most
    // negative frequency (0 Hz at N / 2). `power` has room for `spanBins`.
    void SpanPower(const Ipp64fc* samples, int firstBin, int spanBins, Ipp32f* power);

    int32_t fftOrder = 0;
    int32_t fftSize = 0;
    bool conjugate = false;
    int32_t windowLength = 0;
    smart_array<Ipp64fc> complexWindow;  // windowLength
    smart_array<Ipp64fc> workSamples;    // N: windowed samples, then the transform
    smart_array<double> taps;            // N: the real window, zero beyond windowLength

private:
    std::unique_ptr<FftPlan> plan;
    smart_array<Ipp64fc> spectrum;   // N, halves swapped
    smart_array<Ipp32fc> spectrumF;  // the span of it, narrowed
};

}  // namespace qor

#endif
