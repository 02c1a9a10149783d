// The demodulators of the audio chain: each turns a block of the filtered
// channel (complex, at 486111.11 samples/s, the tuning at 0 Hz) into real
// audio at the same rate.
//
// - AM: the envelope, less its mean and divided by it, so that the depth is
//   normalised to the carrier whatever its level.
// - FM: the phase difference from sample to sample, scaled by the channel's
//   width, then de-emphasised.
// - USB, LSB, CW: the phasing method. The real path goes through a Hilbert
//   transformer of 2047 taps (delay 1023 samples), the imaginary path is
//   delayed by as much across the seams of the blocks, and the two are added:
//   the sum keeps what lies above the tuning (USB) or, with the real path
//   negated, below it (LSB, and CW, which is tuned 1040 Hz above the carrier
//   so that the carrier sounds at 1040 Hz). The output is divided by a
//   peak-following level of the channel. Sampled down behind the low pass,
//   phasing and low pass run as one filter (audio_phasing.h).
//
// The levels of AM, of the sidebands, of CW and FM's last phase outlive an
// engine: the next one starts where the last one left them (AudioLevels,
// one per device). A level that turned infinite or NaN restarts at 0.1 at
// the end of the block that produced it; AM's output of that block is
// silence.
#ifndef QOR_AUDIO_DEMODULATORS_H
#define QOR_AUDIO_DEMODULATORS_H

#include <memory>

#include "audio_filters.h"
#include "ipps.h"
#include "smart_array.h"

namespace qor {

// Values of the audio type of the settings.
enum AudioType { AudioAM = 0, AudioFM = 1, AudioUSB = 2, AudioLSB = 3, AudioCW = 4 };

// What carries over from one audio engine of a device to the next.
struct AudioLevels {
    static constexpr double kStart = 0.10000000149011612;  // 0.1 in float precision
    double am = kStart;
    double sideband = kStart;  // USB and LSB share it
    double cw = kStart;
    float previousPhase = 0.0f;  // FM
};

class AudioDemodulator {
public:
    virtual ~AudioDemodulator() = default;
    // `length` samples, at most the block length the demodulator was made for.
    virtual void Run(const Ipp32fc* channel, Ipp32f* audio, int length) = 0;
    // The same followed by the low pass it was made with, keeping every
    // factor-th output from the first in `block` (length / factor samples;
    // `length` a multiple of the factor); `wide` holds `length` samples of scratch.
    virtual void RunDown(const Ipp32fc* channel, int length, Ipp32f* wide, Ipp32f* block);

protected:
    AudioDemodulator(AudioFirFilter* lowPass, int factor) : lowPass(lowPass), factor(factor) {}
    AudioFirFilter* const lowPass;  // null: no RunDown
    const int factor;
};

// The demodulator of `type` (AudioType) for blocks of up to `blockLength`
// samples; `bandwidthHz` scales FM, `deemphasisUs` is FM's time constant.
// RunDown filters through `lowPass` and samples down by `factor`.
std::unique_ptr<AudioDemodulator> MakeAudioDemodulator(int type, AudioLevels& levels, double bandwidthHz,
                                                       double deemphasisUs, int blockLength,
                                                       AudioFirFilter* lowPass = nullptr, int factor = 1);

}  // namespace qor

#endif
