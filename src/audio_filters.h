// The filters of the audio chain. Each owns its taps and the memory of its
// state; the state carries the delay line from call to call, so consecutive
// blocks are one continuous signal. Taps are designed in double precision and
// kept in float, as the float primitives take them; the primitives filter in
// double precision. Filters of 128 taps and more run by fast convolution.
#ifndef QOR_AUDIO_FILTERS_H
#define QOR_AUDIO_FILTERS_H

#include "ipps.h"
#include "smart_array.h"

namespace qor {

// Butterworth (family 0) or Chebyshev type I (family 1) low or high pass of
// `order`, `ripple` in dB for the Chebyshev family; cut-off relative to the
// sample rate.
class AudioIirFilter {
public:
    AudioIirFilter(double cutoff, double ripple, int order, int family, bool highPass);
    void Run(Ipp32f* samples, int length) { ippsIIR_32f(samples, samples, length, state); }

private:
    smart_array<Ipp32f> taps;
    smart_array<Ipp8u> stateMemory;
    IppsIIRState_32f* state = nullptr;
};

// 2048 real taps of the Blackman-windowed low pass that the decimation chain
// uses, normalised to unit gain.
class AudioFirFilter {
public:
    static constexpr int kTaps = 2048;
    explicit AudioFirFilter(double cutoff);
    // A filter of the same kTaps taps with a delay line of its own, zero.
    explicit AudioFirFilter(const Ipp32f* taps);
    AudioFirFilter(const AudioFirFilter&) = delete;
    AudioFirFilter& operator=(const AudioFirFilter&) = delete;
    const Ipp32f* Taps() const { return taps.get(); }
    // Filters `length` samples and keeps every factor-th output from *phase
    // on in `out`; *phase moves on as the sampling down does.
    void RunDown(const Ipp32f* samples, int length, Ipp32f* out, int factor, int* phase) {
        int written = 0;
        ippsFIRSampleDown_32f(samples, length, out, &written, factor, phase, state);
    }

private:
    smart_array<Ipp32f> taps;
    smart_array<Ipp8u> stateMemory;
    IppsFIRState_32f* state = nullptr;
};

// The channel filter: the same low pass with `tapCount` complex taps
// (imaginary parts 0), so that it selects +-cutoff around the tuning.
class AudioChannelFilter {
public:
    AudioChannelFilter(double cutoff, int tapCount);
    void Run(Ipp32fc* samples, int length) { ippsFIR_32fc(samples, samples, length, state); }
    int TapCount() const { return taps.size(); }

    // 4096 taps below 1 kHz of bandwidth, 2048 below 2 kHz, else 1024: the
    // narrower the channel, the longer the filter that keeps its edges steep.
    static int TapsFor(double bandwidthHz);

private:
    smart_array<Ipp32fc> taps;
    smart_array<Ipp8u> stateMemory;
    IppsFIRState_32fc* state = nullptr;
};

}  // namespace qor

#endif
