#include "audio_chain.h"

#include <cassert>

#include "rbw_filter.h"
#include "settings.h"

namespace qor {
namespace {

// The high pass: second-order Chebyshev type I, 0.2 dB ripple.
constexpr int kHighPassOrder = 2;
constexpr double kHighPassRipple = 0.2;

double MixFrequency(double residualHz) {
    const double f = residualHz / -kSampleRate;
    return f < 0.0 ? f + 1.0 : f;
}

}  // namespace

AudioChain::AudioChain(const Settings& s, double residualHz, AudioLevels& levels)
    : mixFrequency(MixFrequency(residualHz)),
      tone(kReadSamples),
      mixed(kReadSamples),
      channel(kTurnSamples),
      audioWide(kTurnSamples),
      channelFilter(s.audioBandwidth / kSampleRate * 0.5, AudioChannelFilter::TapsFor(s.audioBandwidth)),
      demodulator(MakeAudioDemodulator(s.audioType, levels, s.audioBandwidth, s.audioDeemphasis, kTurnSamples)),
      lowPass(s.audioLowPass / kSampleRate),
      highPass(s.audioHighPass / kAudioRate, kHighPassRipple, kHighPassOrder, ippChebyshev1, true) {
    // The first read is mixed with the tone that follows one read from phase 0.
    ippsTone_64fc(tone.get(), kReadSamples, 1.0, mixFrequency, &mixPhase, ippAlgHintFast);
}

bool AudioChain::Take(const Ipp64fc* samples) {
    ippsTone_64fc(tone.get(), kReadSamples, 1.0, mixFrequency, &mixPhase, ippAlgHintFast);
    ippsMul_64fc(samples, tone.get(), mixed.get(), kReadSamples);
    ippsConvert_64f32f(reinterpret_cast<const Ipp64f*>(mixed.get()), reinterpret_cast<Ipp32f*>(channel.get() + filled),
                       2 * kReadSamples);
    filled += kReadSamples;
    return filled == kTurnSamples;
}

void AudioChain::Run(Ipp32f* block) {
    filled = 0;
    channelFilter.Run(channel.get(), kTurnSamples);
    demodulator->Run(channel.get(), audioWide.get(), kTurnSamples);
    // The low pass computes only the outputs that the sampling down keeps.
    int phase = 0;
    lowPass.RunDown(audioWide.get(), kTurnSamples, block, kDownFactor, &phase);
    assert(phase == 0);
    highPass.Run(block, kBlockSamples);
}

}  // namespace qor
