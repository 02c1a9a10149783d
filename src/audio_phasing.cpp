#include "audio_phasing.h"

#include <cassert>
#include <vector>

namespace qor {
namespace {

constexpr int kLowPassTaps = AudioFirFilter::kTaps;
constexpr int kSeamTail = kLowPassTaps - 1;  // phasing outputs of a turn that the next turn's low pass reaches

}  // namespace

AudioPhasingDown::AudioPhasingDown(const Ipp64f* hilbert, int hilbertTapCount, double sign,
                                   const AudioFirFilter& lowPass, int factor, int blockLength)
    : factor(factor),
      hilbertTaps(hilbertTapCount),
      sign(sign),
      taps(kLowPassTaps + hilbertTapCount - 1),
      down(blockLength / factor),
      tailIn(hilbertTapCount - 1 + kSeamTail),
      tailOut(hilbertTapCount - 1 + kSeamTail),
      seamLowPass(lowPass.Taps()),
      seamLead((factor - kSeamTail % factor) % factor),
      seamOutputs((kSeamTail + factor - 1) / factor),
      seamIn(seamLead + kSeamTail + seamOutputs * factor),
      seamOut(seamIn.size() / factor) {
    // lowpass * (sign hilbert - i delta(delay)), in double, then as the
    // float taps the channel's filter takes.
    const int delay = hilbertTapCount / 2;
    const Ipp32f* lp = lowPass.Taps();
    std::vector<double> re(static_cast<std::size_t>(taps.size()), 0.0);
    for (int m = 0; m < hilbertTapCount; ++m) {
        if (hilbert[m] == 0.0) continue;
        const double h = sign * hilbert[m];
        for (int k = 0; k < kLowPassTaps; ++k) re[m + k] += h * lp[k];
    }
    for (int i = 0; i < taps.size(); ++i) {
        const int k = i - delay;
        taps[i] = {static_cast<float>(re[i]), k >= 0 && k < kLowPassTaps ? -lp[k] : 0.0f};
    }
    int bytes = 0;
    ippsFIRGetStateSize_32fc(taps.size(), &bytes);
    stateMemory.Allocate(bytes);
    ippsFIRInit_32fc(&state, taps.get(), taps.size(), nullptr, stateMemory.get());
    ippsFIRInitAlloc_64f(&tailHilbert, hilbert, hilbertTapCount, nullptr);
    ippsZero_32f(seamIn.get(), seamIn.size());
    ippsZero_32f(seamOut.get(), seamOut.size());
}

AudioPhasingDown::~AudioPhasingDown() { ippsFIRFree_64f(tailHilbert); }

void AudioPhasingDown::Run(const Ipp32fc* channel, int length, double gain, Ipp32f* block) {
    int written = 0, phase = 0;
    ippsFIRSampleDown_32fc(channel, length, down.get(), &written, factor, &phase, state);
    assert(phase == 0 && written == length / factor);
    // The first outputs reach into the turn before, which was divided by its own level.
    const int first = (seamLead + kSeamTail) / factor;
    const double change = previousGain - gain;
    for (int j = 0; j < seamOutputs; ++j) {
        block[j] = static_cast<float>(down[j].re * gain + seamOut[first + j] * change);
    }
    for (int j = seamOutputs; j < written; ++j) block[j] = static_cast<float>(down[j].re * gain);
    previousGain = gain;
    KeepSeam(channel, length);
}

void AudioPhasingDown::KeepSeam(const Ipp32fc* channel, int length) {
    // The phasing output of the last kSeamTail samples: the quadrature filter
    // needs hilbertTaps - 1 samples before them.
    const int history = hilbertTaps - 1;
    const int from = length - history - kSeamTail;
    for (int i = 0; i < tailIn.size(); ++i) tailIn[i] = sign * channel[from + i].re;
    ippsFIR_64f(tailIn.get(), tailOut.get(), tailIn.size(), tailHilbert);
    const int delay = hilbertTaps / 2;
    for (int t = 0; t < kSeamTail; ++t) {
        seamIn[seamLead + t] = static_cast<float>(tailOut[history + t] + channel[length - kSeamTail + t - delay].im);
    }
    // The low pass of that tail followed by silence: at every factor-th
    // output from the start of the next turn, what the turn before adds.
    int phase = 0;
    seamLowPass.RunDown(seamIn.get(), seamIn.size(), seamOut.get(), factor, &phase);
}

}  // namespace qor
