#include "iq_format.h"

#include <algorithm>
#include <cmath>

// The files are little endian by definition; writing memory as it is holds
// only on such a machine.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "samples are written as they lie in memory");

namespace qortool {

const char* SigmfDatatype(IqFormat format) { return format == IqFormat::Cs16 ? "ci16_le" : "cf32_le"; }

bool SampleWriter::Write(const float* iq, std::size_t samples) {
    const std::size_t values = 2 * samples;
    if (format_ == IqFormat::Cf32) return std::fwrite(iq, sizeof(float), values, file_) == values;
    scaled_.resize(std::max(scaled_.size(), values));
    for (std::size_t i = 0; i < values; ++i) {
        const float v = std::clamp(iq[i] * kCs16FullScale, -kCs16FullScale, kCs16FullScale);
        scaled_[i] = static_cast<std::int16_t>(std::lround(v));
    }
    return std::fwrite(scaled_.data(), sizeof(std::int16_t), values, file_) == values;
}

}  // namespace qortool
