// The chain between a block of complex samples and a pair of spectra, the
// minimum and the maximum, each of fftSize bins in dB relative to full scale:
// overlapped windowed FFTs (hop one eighth of the window), the video
// processing unit, the video bandwidth as a moving average over FFT frames,
// and the detector. Bin i stands for (i - N/2) x sampleRate / N from the
// middle of the sampled band. Nothing carries from one block to the next.
//
// Levels become dBm only when an engine adds its correction table; the
// window's 1 + j scaling adds 3.01 dB that the corrections take off again.
//
// One thread at a time: the frames and the filter's work buffers are shared
// by every call.
#ifndef QOR_SPECTRUM_CORE_H
#define QOR_SPECTRUM_CORE_H

#include <cstdint>
#include <vector>

#include "ipps.h"
#include "rbw_filter.h"
#include "smart_array.h"

namespace qor {

constexpr int32_t DetectorMinMax = 0;
constexpr int32_t DetectorAverage = 1;

// Video processing units (Settings.procUnits): what a frame holds while it
// is averaged.
constexpr int32_t UnitsLog = 0;      // power in dB
constexpr int32_t UnitsVoltage = 1;  // magnitude
constexpr int32_t UnitsPower = 2;    // power
constexpr int32_t UnitsSample = 3;   // power of the first frame only, nothing averaged

class SpectrumCore {
public:
    // `samples`: complex samples of each block given to Process. `skipLeading`
    // drops the first 256 of them (the settling of a hop).
    SpectrumCore(RbwFilter* filter, int32_t detector, double rbwToVbw, int32_t samples, bool skipLeading);
    SpectrumCore(const SpectrumCore&) = delete;
    SpectrumCore& operator=(const SpectrumCore&) = delete;

    // `block` holds the constructor's `samples`, which stay as they are.
    // Each frame of them is conjugated with `conjugate` and multiplied by the
    // window, or by `windowedTone` if given: a tone of magnitude 1 times the
    // window, as WindowTone makes it, which shifts the spectrum (the tone's
    // phase at a frame's start turns the frame's spectrum without changing
    // any power). `outMin`, `outMax` take fftSize values (only index 0
    // without an FFT).
    void Process(const Ipp64fc* block, double* outMin, double* outMax, bool conjugate,
                 const Ipp64fc* windowedTone = nullptr);
    // Turns fftSize values of a tone into the windowed tone of Process:
    // times the window, and conjugated first with `conjugate`, since
    // conj(x tone) window = conj(x) (conj(tone) window).
    void WindowTone(Ipp64fc* tone, bool conjugate) const;
    // From now on Process works out only bins from..from+count-1 of its
    // spectra past the FFT (the rest of outMin and outMax holds nothing of use):
    // an engine that keeps the middle of each spectrum spares the others'
    // logarithms and video sums. Without an FFT this changes nothing.
    void KeepBins(int32_t from, int32_t count);
    // The spectrum of the fftSize samples from `samples`, in the filter's units.
    static void FrameSpectrum(RbwFilter* filter, const Ipp64fc* samples, double* out);

    RbwFilter* filter;
    int32_t detector;
    int32_t sampleCount;     // samples taken into the frames
    int32_t hop = 0;         // samples between two frame starts; 0: no frames
    int32_t frameCount = 0;
    int32_t videoFrames = 0;   // frames in one video average
    int32_t averageCount = 0;  // moving averages in a block
    int32_t keepFrom = 0;      // the bins Process works out past the FFT
    int32_t keepCount = 0;
    std::vector<smart_array<double>> frames;  // frameCount x fftSize
    std::vector<smart_array<double>> sums;    // averageCount x fftSize
    bool skipLeading;

private:
    // The window (the filter's unless another is given) and the FFT of one
    // frame, conjugated first if asked, in the filter's work samples (DC first).
    static const Ipp64fc* FrameTransform(RbwFilter* filter, const Ipp64fc* samples, const Ipp64fc* window = nullptr,
                                         bool conjugate = false);
    // Bins from..from+count-1 of a transform's spectrum with its halves
    // swapped (DC in the middle), into the same places of `out` (fftSize
    // values; SwappedPower writes a small spectrum whole): power, and the
    // power or for UnitsVoltage the magnitude.
    static void SwappedPower(const Ipp64fc* work, int n, double* out, int from, int count);
    static void SwappedValues(RbwFilter* filter, const Ipp64fc* work, double* out, int from, int count);
    // Frame `index` of those inside every video average (log units): its
    // power joins a product whose dB value is added to `sum` (the kept bins'
    // sum) every four frames and after the `last`.
    void AddInnerFrame(const Ipp64fc* work, int index, bool last, double* sum);
    // The same bins' power in dB (with a null `work`, `out` holds their
    // power already), and copied to `copy` if given.
    static void PowerDecibels(const Ipp64fc* work, int n, double* out, int from, int count, double* copy = nullptr);
    // Averaged values to dB, by the units they were averaged in.
    void ToDecibels(double* values, int length) const;
    // Power (magnitude for UnitsVoltage) to dB.
    void LinearToDecibels(double* values, int length) const;
    static void PowerToDecibels(double* values, int length);
};

}  // namespace qor

#endif
