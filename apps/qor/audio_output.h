// Where `qor audio` puts its samples: signed 16-bit little-endian mono, raw
// on a stream (for a player such as `aplay -r 30382 -f S16_LE -t raw`) or in
// a WAV file whose sizes are filled in when it is finished.
#ifndef QOR_TOOL_AUDIO_OUTPUT_H
#define QOR_TOOL_AUDIO_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace qortool {

// The library's audio rate, 30381.94 samples/s, as a WAV header states it.
constexpr std::uint32_t kAudioRateHz = 30382;
// A demodulated full level of 1.0 (a sideband at its peak level, AM at 100 %
// depth) sits 6 dB below full scale; louder samples are clipped.
constexpr float kAudioFullScale = 16384.0f;

class AudioOutput {
public:
    // Raw samples to `stream`, which stays the caller's.
    explicit AudioOutput(std::FILE* stream);
    // A WAV file at `path`; throws ToolError when it cannot be made.
    explicit AudioOutput(const std::string& path);
    ~AudioOutput();
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    // False when the stream refused the bytes.
    bool Write(const float* audio, std::size_t samples);
    // Flushes; a WAV file gets its sizes and is closed. False on a write error.
    bool Finish();

private:
    bool WriteHeader(std::uint32_t dataBytes);

    std::FILE* file_;
    bool wav_;
    std::uint64_t samples_ = 0;
    std::vector<std::int16_t> scaled_;
};

}  // namespace qortool

#endif
