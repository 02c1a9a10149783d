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
    FrameValues(filter, samples, out);
    if (filter->units == UnitsLog) {
        ippsLn_64f(out, out, n);
        ippsMulC_64f_I(kTenOverLn10, out, n);
    }
}

const Ipp64fc* SpectrumCore::FrameTransform(RbwFilter* filter, const Ipp64fc* samples) {
    const int n = filter->fftSize;
    Ipp64fc* work = filter->workSamples.get();
    ippsMul_64fc(samples, filter->complexWindow.get(), work, n);
    filter->fftPlan->Forward(work, work);
    return work;
}

void SpectrumCore::FrameValues(RbwFilter* filter, const Ipp64fc* samples, double* out) {
    if (filter->units == UnitsVoltage) {
        const int half = filter->fftSize / 2;
        const Ipp64fc* work = FrameTransform(filter, samples);
        ippsMagnitude_64fc(work, out + half, half);
        ippsMagnitude_64fc(work + half, out, half);
    } else {
        PowerSpectrum(filter, samples, out);
    }
}

void SpectrumCore::PowerSpectrum(RbwFilter* filter, const Ipp64fc* samples, double* out) {
    // Swap the halves so that DC lands in the middle.
    const int half = filter->fftSize / 2;
    const Ipp64fc* work = FrameTransform(filter, samples);
    ippsPowerSpectr_64fc(work, out + half, half);
    ippsPowerSpectr_64fc(work + half, out, half);
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

void SpectrumCore::Process(Ipp64fc* block, double* outMin, double* outMax, bool conjugate) {
    const int n = filter->fftSize;
    Ipp64fc* p = skipLeading ? block + kLeadingSamples : block;

    if (n == 1) {
        double power = 0.0;
        for (int i = 0; i < kDirectSamples; ++i) power += p[i].re * p[i].re + p[i].im * p[i].im;
        outMin[0] = outMax[0] = 10.0 * std::log10(power * (1.0 / kDirectSamples)) + kDirectOffsetDb;
        return;
    }

    if (conjugate) ippsConj_64fc(p, p, sampleCount);

    // Past the FFT only the kept bins are worked on.
    const int k0 = keepFrom, kn = keepCount;
    if (filter->units == UnitsSample) {
        FrameValues(filter, p, outMin);
        ippsCopy_64f(outMin + k0, outMax + k0, kn);
        ToDecibels(outMin + k0, kn);
        ToDecibels(outMax + k0, kn);
        return;
    }
    if (videoFrames == 1 && detector == DetectorMinMax) {
        // Each frame is its own average, and the logarithm keeps the order of
        // values (magnitudes order as powers do): the extremes of the frames'
        // powers, taken to dB at the end, are the extremes of their dB values.
        double* power = frames[0].get();
        PowerSpectrum(filter, p, outMin);
        ippsCopy_64f(outMin + k0, outMax + k0, kn);
        for (int f = 1; f < frameCount; ++f) {
            PowerSpectrum(filter, p + f * hop, power);
            ippsMinEvery_64f(power + k0, outMin + k0, outMin + k0, kn);
            ippsMaxEvery_64f(power + k0, outMax + k0, outMax + k0, kn);
        }
        PowerToDecibels(outMin + k0, kn);
        PowerToDecibels(outMax + k0, kn);
        return;
    }
    for (int f = 0; f < frameCount; ++f) {
        FrameValues(filter, p + f * hop, frames[f].get());
        if (filter->units == UnitsLog) LinearToDecibels(frames[f].get() + k0, kn);
    }

    // Moving sums over videoFrames frames: one subtraction and one
    // addition per step, whatever the length of the average.
    double* first = sums[0].get() + k0;
    ippsCopy_64f(frames[0].get() + k0, first, kn);
    for (int f = 1; f < videoFrames; ++f) ippsAdd_64f(first, frames[f].get() + k0, first, kn);
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
