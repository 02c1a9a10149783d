#include "spectrum_core.h"

#include <algorithm>
#include <cmath>

namespace qor {
namespace {

constexpr double kTenOverLn10 = 4.342944819032518;
constexpr int kLeadingSamples = 256;
// The direct power path of an RBW without FFT: 256 samples, and 2.5 dB in
// place of the window's 3 dB.
constexpr int kDirectSamples = 256;
constexpr double kDirectOffsetDb = 2.5;
// A small spectrum is cheaper whole, in runs that the vector loop takes,
// than as the few bins kept, in short runs it takes one by one.
constexpr int kSmallSpectrum = 32;

// Calls take(FFT output index, bin, length) for the one or two runs of
// bins from..from+count-1 of a spectrum with its halves swapped (DC in the
// middle): bin i is FFT output (i + N/2) mod N.
template <typename Take>
void SwappedPieces(int n, int from, int count, Take take) {
    const int half = n / 2, end = from + count;
    if (from < half) take(from + half, from, std::min(end, half) - from);
    if (end > half) {
        const int first = std::max(from, half);
        take(first - half, first, end - first);
    }
}

// The running extremes of the frames' values in one pass, chosen as the
// every-element minimum and maximum primitives choose: a call of those per
// frame of a small spectrum costs more than its few bins.
void FoldExtremes(const double* values, double* min, double* max, int count) {
    for (int i = 0; i < count; ++i) {
        const double v = values[i];
        min[i] = min[i] < v ? min[i] : v;
        max[i] = max[i] > v ? max[i] : v;
    }
}

// products[i] times the power of work[i], in one pass rather than a power
// written out and read back for a product.
void MultiplyByPower(const Ipp64fc* work, double* products, int count) {
    for (int i = 0; i < count; ++i) products[i] *= work[i].re * work[i].re + work[i].im * work[i].im;
}

}  // namespace

SpectrumCore::SpectrumCore(RbwFilter* filter, int32_t detector, double rbwToVbw, int32_t samples,
                           bool skipLeading)
    : filter(filter), detector(detector), sampleCount(samples), skipLeading(skipLeading) {
    const int n = filter->fftSize;
    // Without an FFT the block's power is measured directly. Small FFTs (the
    // 8 points of the flat top just below 210 kHz) keep the frame path with
    // a hop of at least one sample.
    if (n == 1) return;
    keepCount = n;
    if (skipLeading) sampleCount -= kLeadingSamples;
    hop = std::max(1, (n - filter->zeroPad) / 8);
    frameCount = (sampleCount - n) / hop + 1;
    videoFrames = static_cast<int32_t>(std::trunc(rbwToVbw * 8.0 - 7.0));
    if (videoFrames > frameCount || detector == DetectorAverage) videoFrames = frameCount;
    videoFrames = std::max(videoFrames, 1);
    averageCount = frameCount - videoFrames + 1;
    frames.resize(static_cast<std::size_t>(frameCount));
    for (auto& frame : frames) frame.Allocate(n);
    sums.resize(static_cast<std::size_t>(averageCount));
    for (auto& sum : sums) sum.Allocate(n);
}

void SpectrumCore::FrameSpectrum(RbwFilter* filter, const Ipp64fc* samples, double* out) {
    const int n = filter->fftSize;
    if (n == 1) return;
    const Ipp64fc* work = FrameTransform(filter, samples);
    if (filter->units == UnitsLog) {
        PowerDecibels(work, n, out, 0, n);
    } else {
        SwappedValues(filter, work, out, 0, n);
    }
}

const Ipp64fc* SpectrumCore::FrameTransform(RbwFilter* filter, const Ipp64fc* samples, const Ipp64fc* window,
                                            bool conjugate) {
    Ipp64fc* work = filter->workSamples.get();
    filter->fftPlan->ForwardWindowed(samples, window ? window : filter->complexWindow.get(), work, conjugate);
    return work;
}

void SpectrumCore::WindowTone(Ipp64fc* tone, bool conjugate) const {
    const int n = filter->fftSize;
    if (conjugate) ippsConj_64fc(tone, tone, n);
    ippsMul_64fc_I(filter->complexWindow.get(), tone, n);
}

void SpectrumCore::SwappedPower(const Ipp64fc* work, int n, double* out, int from, int count) {
    if (n <= kSmallSpectrum) {
        from = 0;
        count = n;
    }
    SwappedPieces(n, from, count, [&](int source, int bin, int length) {
        ippsPowerSpectr_64fc(work + source, out + bin, length);
    });
}

void SpectrumCore::SwappedValues(RbwFilter* filter, const Ipp64fc* work, double* out, int from, int count) {
    if (filter->units != UnitsVoltage) {
        SwappedPower(work, filter->fftSize, out, from, count);
        return;
    }
    SwappedPieces(filter->fftSize, from, count, [&](int source, int bin, int length) {
        ippsMagnitude_64fc(work + source, out + bin, length);
    });
}

void SpectrumCore::AddInnerFrame(const Ipp64fc* work, int index, bool last, double* sum) {
    // Four powers multiply well inside the range of a double (from 16-bit
    // samples a power that is not 0 lies far above 1e-77, and none exceeds
    // a few units), and one logarithm serves them all.
    constexpr int kGroup = 4;
    const int n = filter->fftSize, k0 = keepFrom, kn = keepCount;
    double* products = filter->workSpectrum.get();
    double* product = products + k0;
    if (index % kGroup == 0) {
        SwappedPower(work, n, products, k0, kn);
    } else {
        SwappedPieces(n, k0, kn, [&](int source, int bin, int length) {
            MultiplyByPower(work + source, products + bin, length);
        });
    }
    if (index % kGroup != kGroup - 1 && !last) return;
    PowerToDecibels(product, kn);
    if (index < kGroup) {
        ippsCopy_64f(product, sum, kn);
    } else {
        ippsAdd_64f(sum, product, sum, kn);
    }
}

void SpectrumCore::PowerDecibels(const Ipp64fc* work, int n, double* out, int from, int count, double* copy) {
    // Piece by piece, so that the logarithm and the copy find the powers
    // still in the first-level cache.
    constexpr int kPiece = 1024;
    for (int i = from; i < from + count; i += kPiece) {
        const int length = std::min(kPiece, from + count - i);
        if (work) SwappedPower(work, n, out, i, length);
        PowerToDecibels(out + i, length);
        if (copy) ippsCopy_64f(out + i, copy + i, length);
    }
}

void SpectrumCore::KeepBins(int32_t from, int32_t count) {
    const int n = filter->fftSize;
    keepFrom = std::clamp(from, 0, n);
    keepCount = std::clamp(count, 0, n - keepFrom);
}

void SpectrumCore::ToDecibels(double* values, int length) const {
    if (filter->units != UnitsLog) LinearToDecibels(values, length);
}

void SpectrumCore::LinearToDecibels(double* values, int length) const {
    if (filter->units == UnitsVoltage) ippsSqr_64f(values, values, length);
    PowerToDecibels(values, length);
}

void SpectrumCore::PowerToDecibels(double* values, int length) {
    ippsLn_64f(values, values, length);
    ippsMulC_64f_I(kTenOverLn10, values, length);
}

void SpectrumCore::Process(const Ipp64fc* block, double* outMin, double* outMax, bool conjugate,
                           const Ipp64fc* windowedTone) {
    const int n = filter->fftSize;
    const Ipp64fc* p = skipLeading ? block + kLeadingSamples : block;

    if (n == 1) {
        double power = 0.0;
        for (int i = 0; i < kDirectSamples; ++i) power += p[i].re * p[i].re + p[i].im * p[i].im;
        outMin[0] = outMax[0] = 10.0 * std::log10(power * (1.0 / kDirectSamples)) + kDirectOffsetDb;
        return;
    }

    // Past the FFT only the kept bins are worked on.
    const int k0 = keepFrom, kn = keepCount;
    // Conjugation and window (or windowed tone) on the way into each transform.
    const Ipp64fc* window = windowedTone ? windowedTone : filter->complexWindow.get();
    if (filter->units == UnitsSample || (frameCount == 1 && detector == DetectorMinMax)) {
        // One frame is both extremes (sample units look at the first only);
        // the transform gives its power at once.
        filter->fftPlan->ForwardWindowedPower(p, window, conjugate, filter->workSamples.get(), outMin);
        PowerDecibels(nullptr, n, outMin, k0, kn, outMax);
        return;
    }
    const auto frame = [&](int f) { return FrameTransform(filter, p + f * hop, window, conjugate); };

    if (videoFrames == 1 && detector == DetectorMinMax) {
        // Each frame is its own average, and the logarithm keeps the order of
        // values: the extremes of the frames' powers, taken to dB at the end,
        // are the extremes of their dB values.
        double* power = frames[0].get();
        SwappedPower(frame(0), n, outMin, k0, kn);
        ippsCopy_64f(outMin + k0, outMax + k0, kn);
        // The later frames' powers stay in the FFT's order (a small spectrum
        // whole, in one call) and meet the extremes' bins on the way.
        const bool whole = n <= kSmallSpectrum;
        for (int f = 1; f < frameCount; ++f) {
            const Ipp64fc* work = frame(f);
            if (whole) ippsPowerSpectr_64fc(work, power, n);
            SwappedPieces(n, k0, kn, [&](int source, int bin, int length) {
                if (!whole) ippsPowerSpectr_64fc(work + source, power + source, length);
                FoldExtremes(power + source, outMin + bin, outMax + bin, length);
            });
        }
        PowerToDecibels(outMin + k0, kn);
        PowerToDecibels(outMax + k0, kn);
        return;
    }
    // Frames [inner, videoFrames) lie in every average: in dB only their sum
    // counts (with log units), and that is the logarithm of their product.
    const int inner = averageCount - 1;
    const bool logUnits = filter->units == UnitsLog;
    const bool grouped = logUnits && videoFrames - inner > 1;
    double* first = sums[0].get() + k0;
    for (int f = 0; f < frameCount; ++f) {
        const Ipp64fc* work = frame(f);
        if (grouped && f >= inner && f < videoFrames) {
            AddInnerFrame(work, f - inner, f + 1 == videoFrames, first);
        } else if (logUnits) {
            PowerDecibels(work, n, frames[f].get(), k0, kn);
        } else {
            SwappedValues(filter, work, frames[f].get(), k0, kn);
        }
    }

    // Moving sums over videoFrames frames: one subtraction and one
    // addition per step, whatever the length of the average.
    if (grouped) {
        for (int f = 0; f < inner; ++f) ippsAdd_64f(first, frames[f].get() + k0, first, kn);
    } else {
        ippsCopy_64f(frames[0].get() + k0, first, kn);
        for (int f = 1; f < videoFrames; ++f) ippsAdd_64f(first, frames[f].get() + k0, first, kn);
    }
    for (int k = 1; k < averageCount; ++k) {
        double* sum = sums[k].get() + k0;
        ippsSub_64f(frames[k - 1].get() + k0, sums[k - 1].get() + k0, sum, kn);
        ippsAdd_64f(sum, frames[k + videoFrames - 1].get() + k0, sum, kn);
    }
    for (auto& sum : sums) ippsMulC_64f_I(1.0 / videoFrames, sum.get() + k0, kn);

    if (detector == DetectorAverage) {
        ippsZero_64f(outMin + k0, kn);
        for (auto& sum : sums) {
            ippsMulC_64f_I(1.0 / averageCount, sum.get() + k0, kn);
            ippsAdd_64f(sum.get() + k0, outMin + k0, outMin + k0, kn);
        }
        ippsCopy_64f(outMin + k0, outMax + k0, kn);
    } else {
        ippsCopy_64f(first, outMin + k0, kn);
        ippsCopy_64f(first, outMax + k0, kn);
        for (int k = 1; k < averageCount; ++k) {
            ippsMinEvery_64f(sums[k].get() + k0, outMin + k0, outMin + k0, kn);
            ippsMaxEvery_64f(sums[k].get() + k0, outMax + k0, outMax + k0, kn);
        }
    }
    ToDecibels(outMin + k0, kn);
    ToDecibels(outMax + k0, kn);
}

}  // namespace qor
