// The signal path of the audio mode, one turn at a time: 65536 samples of
// the stream at 486111.11 samples/s (134.8 ms) become 4096 audio samples at
// 30381.94 samples/s.
//
// Each read of 4096 samples is mixed by the residual that the tuning left
// (one tone whose phase runs on from read to read, so the tuning lands on
// exactly 0 Hz) and narrowed to float (Take). A full turn then runs the
// channel filter, the demodulator, the audio low pass at the full rate, the
// sampling down by 16 and the high pass at the audio rate (Run). All filter
// memories carry over from turn to turn. Built and used by one thread;
// allocates nothing after construction.
#ifndef QOR_AUDIO_CHAIN_H
#define QOR_AUDIO_CHAIN_H

#include <memory>

#include "audio_demodulators.h"
#include "audio_filters.h"
#include "ipps.h"
#include "smart_array.h"

namespace qor {

struct Settings;

class AudioChain {
public:
    static constexpr int kReadSamples = 4096;
    static constexpr int kTurnSamples = 65536;
    static constexpr int kDownFactor = 16;
    static constexpr int kBlockSamples = kTurnSamples / kDownFactor;
    static constexpr double kAudioRate = 30381.944444444445;

    // The demodulator, channel and audio filters as `settings` has them;
    // `residualHz` is what the tuning left over.
    AudioChain(const Settings& settings, double residualHz, AudioLevels& levels);

    // Mixes one read of 4096 samples into the turn; true once the turn is full.
    bool Take(const Ipp64fc* samples);
    // The full turn into `block` (4096 samples); the next Take starts a new turn.
    void Run(Ipp32f* block);

    int ChannelTaps() const { return channelFilter.TapCount(); }

private:
    static constexpr int kToneReads = 4;  // reads that one generation of the tone covers

    double mixFrequency;
    double mixPhase = 0.0;
    int filled = 0;  // samples of the turn taken so far
    smart_array<Ipp64fc> tone;     // kToneReads reads' worth of the mix
    smart_array<Ipp64fc> mixed;    // one read, mixed
    smart_array<Ipp32fc> channel;  // the turn
    smart_array<Ipp32f> audioWide; // the turn, demodulated
    AudioChannelFilter channelFilter;
    AudioFirFilter lowPass;
    std::unique_ptr<AudioDemodulator> demodulator;  // with the low pass behind it
    AudioIirFilter highPass;
};

}  // namespace qor

#endif
