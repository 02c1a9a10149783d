// The resolution bandwidth of the FFT engines, made on the host by the FFT
// window: from an RBW, a shape and a sample rate follow the FFT size, the
// window and the transform's plan. The FFT length is a power of two, but the
// window is computed for the exact RBW, so any RBW can be asked for.
//
// Two shapes: the flat top (a windowed-sinc low-pass under a Blackman window,
// filling the whole FFT) and the Gaussian (an approximate confined Gaussian
// filling at most half of the FFT, the rest zero padding).
//
// Constant after construction but for workSamples and workSpectrum, which
// SpectrumCore uses as scratch: one thread at a time.
#ifndef QOR_RBW_FILTER_H
#define QOR_RBW_FILTER_H

#include <cstdint>
#include <memory>

#include "ipps.h"
#include "smart_array.h"

namespace qor {

constexpr double kSampleRate = 486111.1111111111;
constexpr int32_t RbwShapeFlatTop = 1;
constexpr int32_t RbwShapeGaussian = 2;
// Above this RBW there is no FFT: SpectrumCore measures the block's power directly.
constexpr double kDirectPowerRbw = 210000.0;

// Specification, initialisation and work memory of one complex FFT of
// 2^order points: forward transform divided by N, inverse undivided.
class FftPlan {
public:
    explicit FftPlan(int order);
    FftPlan(const FftPlan&) = delete;
    FftPlan& operator=(const FftPlan&) = delete;

    // Source and destination may be the same array.
    IppStatus Forward(const Ipp64fc* source, Ipp64fc* destination);
    IppStatus Inverse(const Ipp64fc* source, Ipp64fc* destination);
    // The forward transform of source times window (complex products; of
    // conj(source) times window when `conjugate`).
    IppStatus ForwardWindowed(const Ipp64fc* source, const Ipp64fc* window, Ipp64fc* destination,
                              bool conjugate = false);
    // That transform's power with its halves swapped (DC in the middle);
    // `scratch` holds 2^order complex values and may be overwritten.
    IppStatus ForwardWindowedPower(const Ipp64fc* source, const Ipp64fc* window, bool conjugate, Ipp64fc* scratch,
                                   double* power);

private:
    smart_array<Ipp8u> specMemory_;
    smart_array<Ipp8u> initMemory_;
    smart_array<Ipp8u> work_;
    IppsFFTSpec_C_64fc* spec_ = nullptr;
};

// FFT size of an RBW: what the filter's constructor derives before it builds
// anything (fftSize 1: no FFT at all).
struct RbwGeometry {
    int32_t fftOrder = 0;
    int32_t fftSize = 0;
    int32_t zeroPad = 0;
    double cutoffBins = 0.0;
};

RbwGeometry RbwGeometryFor(double rbw, int32_t shape, double sampleRate, bool capFftSize);

// The approximate confined Gaussian (sigma 0.1 of the length) of `length` taps.
void ConfinedGaussianWindow(double* taps, int length);

class RbwFilter {
public:
    // `capFftSize` holds the FFT at 256 points (the fast sweep's usable block).
    RbwFilter(double rbw, int32_t shape, double sampleRate, int32_t units, bool capFftSize);
    RbwFilter(const RbwFilter&) = delete;
    RbwFilter& operator=(const RbwFilter&) = delete;

    int32_t fftOrder = 0;
    int32_t fftSize = 0;        // N; 1: no FFT, and none of the buffers below exists
    int32_t zeroPad = 0;        // trailing zero taps of the window
    double cutoffBins = 0.0;    // flat top: cutoff of the window design, in bins
    int32_t units = 0;          // video processing units (Settings.procUnits)
    smart_array<Ipp64fc> complexWindow;  // N; real and imaginary part both hold the tap
    smart_array<Ipp64fc> workSamples;    // N; windowed samples and FFT output
    smart_array<double> workSpectrum;    // N; the taps while building, then SpectrumCore's products of powers
    std::unique_ptr<FftPlan> fftPlan;
};

}  // namespace qor

#endif
