#include "audio_chain.h"

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
      tone(kToneReads * kReadSamples),
      mixed(kReadSamples),
      channel(kTurnSamples),
      audioWide(kTurnSamples),
      channelFilter(s.audioBandwidth / kSampleRate * 0.5, AudioChannelFilter::TapsFor(s.audioBandwidth)),
      lowPass(s.audioLowPass / kSampleRate),
      demodulator(MakeAudioDemodulator(s.audioType, levels, s.audioBandwidth, s.audioDeemphasis, kTurnSamples,
                                       &lowPass, kDownFactor)),
      highPass(s.audioHighPass / kAudioRate, kHighPassRipple, kHighPassOrder, ippChebyshev1, true) {
    // The first read is mixed with the tone that follows one read from phase 0.
    ippsTone_64fc(tone.get(), kReadSamples, 1.0, mixFrequency, &mixPhase, ippAlgHintFast);
    static_assert(kTurnSamples % (kToneReads * kReadSamples) == 0, "a turn holds whole tones");
}

bool AudioChain::Take(const Ipp64fc* samples) {
    // The tone of several reads at once: each call pays for its start anew.
    const int read = filled / kReadSamples % kToneReads;
    if (read == 0) ippsTone_64fc(tone.get(), tone.size(), 1.0, mixFrequency, &mixPhase, ippAlgHintFast);
    const Ipp64fc* readTone = tone.get() + read * kReadSamples;
    ippsMul_64fc(samples, readTone, mixed.get(), kReadSamples);
    ippsConvert_64f32f(&mixed[0].re, &channel[filled].re, 2 * kReadSamples);
    filled += kReadSamples;
    return filled == kTurnSamples;
}

void AudioChain::Run(Ipp32f* block) {
    filled = 0;
    channelFilter.Run(channel.get(), kTurnSamples);
    // The low pass computes only the outputs that the sampling down keeps.
    demodulator->RunDown(channel.get(), kTurnSamples, audioWide.get(), block);
    highPass.Run(block, kBlockSamples);
}

}  // namespace qor
