#include "audio_filters.h"

#include <vector>

#include "stream_lowpass.h"

namespace qor {
namespace {

std::vector<float> FloatTaps(const std::vector<double>& design) {
    std::vector<float> taps(design.size());
    ippsConvert_64f32f(design.data(), taps.data(), static_cast<int>(taps.size()));
    return taps;
}

}  // namespace

AudioIirFilter::AudioIirFilter(double cutoff, double ripple, int order, int family, bool highPass)
    : taps(2 * order + 2) {
    std::vector<double> design(static_cast<std::size_t>(2 * order + 2), 0.0);
    const auto kind = static_cast<IppsIIRFilterType>(family);
    if (highPass) {
        ippsIIRGenHighpass_64f(cutoff, ripple, order, design.data(), kind);
    } else {
        ippsIIRGenLowpass_64f(cutoff, ripple, order, design.data(), kind);
    }
    ippsConvert_64f32f(design.data(), taps.get(), taps.size());
    int bytes = 0;
    ippsIIRGetStateSize_32f(order, &bytes);
    stateMemory.Allocate(bytes);
    // A refused design (a0 of 0) makes no state, and the filter then passes
    // the samples untouched.
    ippsIIRInit_32f(&state, taps.get(), order, nullptr, stateMemory.get());
}

AudioFirFilter::AudioFirFilter(double cutoff) : AudioFirFilter(FloatTaps(StreamLowpassTaps(cutoff, kTaps)).data()) {}

AudioFirFilter::AudioFirFilter(const Ipp32f* from) : taps(kTaps) {
    ippsCopy_32f(from, taps.get(), kTaps);
    int bytes = 0;
    ippsFIRGetStateSize_32f(kTaps, &bytes);
    stateMemory.Allocate(bytes);
    ippsFIRInit_32f(&state, taps.get(), kTaps, nullptr, stateMemory.get());
}

AudioChannelFilter::AudioChannelFilter(double cutoff, int tapCount) : taps(tapCount) {
    const std::vector<double> design = StreamLowpassTaps(cutoff, tapCount);
    for (int i = 0; i < tapCount; ++i) taps[i] = {static_cast<float>(design[i]), 0.0f};
    int bytes = 0;
    ippsFIRGetStateSize_32fc(tapCount, &bytes);
    stateMemory.Allocate(bytes);
    ippsFIRInit_32fc(&state, taps.get(), tapCount, nullptr, stateMemory.get());
}

int AudioChannelFilter::TapsFor(double bandwidthHz) {
    if (bandwidthHz < 1000.0) return 4096;
    if (bandwidthHz < 2000.0) return 2048;
    return 1024;
}

}  // namespace qor
