#include "audio_output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "session.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples and header words are written as they lie in memory");

namespace qortool {
namespace {

constexpr std::uint32_t kHeaderBytes = 44;
// A WAV file's sizes are 32-bit: longer recordings keep the largest size.
constexpr std::uint64_t kLargestData = 0xFFFFFFFFull - kHeaderBytes;

template <typename T>
void Put(std::vector<unsigned char>& out, T value) {
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &value, sizeof(T));
    out.insert(out.end(), bytes, bytes + sizeof(T));
}

void PutTag(std::vector<unsigned char>& out, const char* tag) { out.insert(out.end(), tag, tag + 4); }

}  // namespace

AudioOutput::AudioOutput(std::FILE* stream) : file_(stream), wav_(false) {}

AudioOutput::AudioOutput(const std::string& path) : file_(std::fopen(path.c_str(), "wb")), wav_(true) {
    if (file_ == nullptr) throw ToolError("--wav " + path + ": " + std::strerror(errno));
    // Sizes of 0 until Finish knows them.
    if (!WriteHeader(0)) throw ToolError("--wav " + path + ": cannot write");
}

AudioOutput::~AudioOutput() {
    if (wav_ && file_ != nullptr) std::fclose(file_);
}

bool AudioOutput::WriteHeader(std::uint32_t dataBytes) {
    std::vector<unsigned char> h;
    PutTag(h, "RIFF");
    Put<std::uint32_t>(h, kHeaderBytes - 8 + dataBytes);
    PutTag(h, "WAVE");
    PutTag(h, "fmt ");
    Put<std::uint32_t>(h, 16);            // size of the format chunk
    Put<std::uint16_t>(h, 1);             // PCM
    Put<std::uint16_t>(h, 1);             // mono
    Put<std::uint32_t>(h, kAudioRateHz);
    Put<std::uint32_t>(h, kAudioRateHz * 2);  // bytes per second
    Put<std::uint16_t>(h, 2);             // bytes per frame
    Put<std::uint16_t>(h, 16);            // bits per sample
    PutTag(h, "data");
    Put<std::uint32_t>(h, dataBytes);
    return std::fwrite(h.data(), 1, h.size(), file_) == h.size();
}

bool AudioOutput::Write(const float* audio, std::size_t samples) {
    scaled_.resize(std::max(scaled_.size(), samples));
    for (std::size_t i = 0; i < samples; ++i) {
        const float v = std::clamp(audio[i] * kAudioFullScale, -32768.0f, 32767.0f);
        scaled_[i] = static_cast<std::int16_t>(std::lround(v));
    }
    samples_ += samples;
    return std::fwrite(scaled_.data(), sizeof(std::int16_t), samples, file_) == samples;
}

bool AudioOutput::Finish() {
    if (std::fflush(file_) != 0) return false;
    if (!wav_) return true;
    const auto data = static_cast<std::uint32_t>(std::min<std::uint64_t>(samples_ * 2, kLargestData));
    const bool written = std::fseek(file_, 0, SEEK_SET) == 0 && WriteHeader(data);
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return written && closed;
}

}  // namespace qortool
