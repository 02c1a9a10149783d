#include "iq_decimator.h"

#include <cmath>
#include <vector>

#include "rbw_filter.h"
#include "stream_lowpass.h"

namespace qor {
namespace {

constexpr int kFirstTaps = 2048;
constexpr int kSecondTaps = 512;
constexpr int kSingleStageOrders = 3;  // up to D = 8
constexpr double kAntiAliasCutoff = 0.05142857142857143;  // 25 kHz
constexpr int kCorrectionOrder = 11;   // 2048-point FFT
constexpr double kWindowDb = 3.0;      // what the corrections take off for a window

}  // namespace

IQDecimator::Stage::Stage(int tapCount, double cutoff) : tapCount(tapCount), taps(tapCount) {
    const std::vector<double> real = StreamLowpassTaps(cutoff, tapCount);
    for (int i = 0; i < tapCount; ++i) taps[i] = {real[i], 0.0};
    int bytes = 0;
    ippsFIRGetStateSize_64fc(tapCount, &bytes);
    stateMemory.Allocate(bytes);
}

void IQDecimator::Stage::Init() { ippsFIRInit_64fc(&state, taps.get(), tapCount, nullptr, stateMemory.get()); }

IQDecimator::IQDecimator(int order, double bandwidth)
    : order(order), first(kFirstTaps, order <= kSingleStageOrders ? bandwidth / 2 : kAntiAliasCutoff) {
    if (order > kSingleStageOrders) {
        // It runs at an eighth of the rate: the cut-off scales with it.
        second = std::make_unique<Stage>(kSecondTaps, 8 * bandwidth / 2);
        second->Init();
    }
}

void IQDecimator::ApplyCorrections(const double* table) {
    FftPlan plan(kCorrectionOrder);
    smart_array<Ipp64fc> spectrum(kCorrectionBins);
    plan.Forward(first.taps.get(), spectrum.get());
    for (int k = 0; k < kCorrectionBins; ++k) {
        const double gain = std::pow(10.0, (table[k] + kWindowDb) * 0.05);
        spectrum[k].re *= gain;
        spectrum[k].im *= gain;
    }
    plan.Inverse(spectrum.get(), first.taps.get());
    first.Init();
}

void IQDecimator::Process(const Ipp64fc* source, Ipp64fc* destination) {
    // Each filter computes only the outputs that its sampling down keeps.
    int length = 0;
    if (order <= kSingleStageOrders) {
        ippsFIRSampleDown_64fc(source, kBlockSamples, destination, &length, 1 << order, &firstPhase, first.state);
        return;
    }
    if (between.empty()) between.Allocate(kAfterFirst);
    ippsFIRSampleDown_64fc(source, kBlockSamples, between.get(), &length, 8, &firstPhase, first.state);
    ippsFIRSampleDown_64fc(between.get(), kAfterFirst, destination, &length, 1 << (order - kSingleStageOrders),
                           &secondPhase, second->state);
}

}  // namespace qor
