// How the library's calibrated float samples become bytes in a file or a pipe.
#ifndef QOR_TOOL_IQ_FORMAT_H
#define QOR_TOOL_IQ_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace qortool {

// The library's samples have I^2 + Q^2 equal to the power in mW, so a
// magnitude of 1.0 is 0 dBm. cf32 keeps them as they are; cs16 maps a
// component of 1.0 to 32767 and clips beyond, which puts full scale at 0 dBm
// and one step at -90.3 dBm.
enum class IqFormat { Cf32, Cs16 };

constexpr float kCs16FullScale = 32767.0f;

// The SigMF datatype of a format: "cf32_le" or "ci16_le".
const char* SigmfDatatype(IqFormat format);

// Writes interleaved I, Q samples to a stream in one format, little endian.
class SampleWriter {
public:
    SampleWriter(std::FILE* file, IqFormat format) : file_(file), format_(format) {}
    // False when the stream refused the bytes.
    bool Write(const float* iq, std::size_t samples);

private:
    std::FILE* file_;
    IqFormat format_;
    std::vector<std::int16_t> scaled_;  // grows to the largest block once
};

}  // namespace qortool

#endif
