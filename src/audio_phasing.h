// The phasing method of the sidebands and the audio low pass behind it as
// one filter that computes only the outputs the sampling down keeps.
//
// Both are linear: the low pass of (quadrature filter of the real path plus
// the imaginary path 1023 samples late) is the real part of one complex
// filter of the channel, lowpass * (sign hilbert - i delta(1023)), of 4094
// taps. Its fast convolution costs one forward transform per chunk and a
// short folded inverse, where the two filters apart cost two transforms for
// the quadrature filter and one for the low pass.
//
// The level divides the phasing output turn by turn, so the first outputs
// of a turn, whose low pass reaches into the turn before, must see that
// turn's samples divided by that turn's level. That part of them (the
// seam) is the low pass of the last 2047 phasing outputs of the turn
// before, computed at the end of each turn: the output is the whole filter
// divided by this turn's level plus the seam times the change of 1 / level.
// Built and used by one thread; allocates nothing after construction.
#ifndef QOR_AUDIO_PHASING_H
#define QOR_AUDIO_PHASING_H

#include "audio_filters.h"
#include "ipps.h"
#include "smart_array.h"

namespace qor {

class AudioPhasingDown {
public:
    // `hilbert`: the quadrature filter's taps (hilbertTapCount, delay hilbertTapCount / 2);
    // `sign` of the real path; every factor-th output of `lowPass` is kept.
    AudioPhasingDown(const Ipp64f* hilbert, int hilbertTapCount, double sign, const AudioFirFilter& lowPass,
                     int factor, int blockLength);
    ~AudioPhasingDown();
    AudioPhasingDown(const AudioPhasingDown&) = delete;
    AudioPhasingDown& operator=(const AudioPhasingDown&) = delete;

    // One turn of `length` channel samples (a multiple of the factor and
    // more than both filters) into length / factor outputs in `block`, the
    // phasing output multiplied by `gain`, 1 / level of this turn.
    void Run(const Ipp32fc* channel, int length, double gain, Ipp32f* block);

private:
    void KeepSeam(const Ipp32fc* channel, int length);

    const int factor;
    const int hilbertTaps;
    const double sign;
    // The combined filter.
    smart_array<Ipp32fc> taps;
    smart_array<Ipp8u> stateMemory;
    IppsFIRState_32fc* state = nullptr;
    smart_array<Ipp32fc> down;
    // The seam: the quadrature filter over the turn's tail (its own delay
    // line, whose stale samples reach only outputs not used), then the low pass.
    IppsFIRState_64f* tailHilbert = nullptr;
    smart_array<Ipp64f> tailIn, tailOut;
    AudioFirFilter seamLowPass;
    const int seamLead;     // zeros before the tail, so the outputs kept fall on the factor
    const int seamOutputs;  // outputs of a turn that reach into the turn before
    smart_array<Ipp32f> seamIn, seamOut;
    double previousGain = 0.0;  // the seam is zero before the first turn
};

}  // namespace qor

#endif
