#include "view_frame.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "peaks.h"

namespace qortool {
namespace {

template <typename T>
void Put(std::string* out, std::size_t offset, T value) {
    std::memcpy(&(*out)[offset], &value, sizeof value);
}

// The density of hits in a column, 1e-5 to 1, on 8 bits that keep the rare ones visible.
std::uint8_t DensityCode(float density) {
    if (!(density > 0.0f)) return 0;
    const double code = 255.0 + 51.0 * std::log10(static_cast<double>(density));
    return static_cast<std::uint8_t>(std::lround(std::fmin(255.0, std::fmax(1.0, code))));
}

}  // namespace

std::string EncodeFrame(const LiveFrame& f) {
    const std::size_t bins = f.max.size();
    const std::size_t cells = f.image.size();
    const std::size_t size = kFrameHeaderBytes + 8 * bins + (cells + 3) / 4 * 4;
    std::string out(size, '\0');
    const std::vector<double> trace(f.max.begin(), f.max.end());
    const std::vector<Peak> peaks = StrongestPeaks(trace, f.startFreq, f.binSize, 2, 6.0, 0.0);
    const double none = std::numeric_limits<double>::quiet_NaN();
    Put<std::uint32_t>(&out, 0, kFrameMagic);
    Put<std::uint32_t>(&out, 4, static_cast<std::uint32_t>(size));
    Put<std::uint32_t>(&out, 8, f.sequence);
    Put<std::uint32_t>(&out, 12, f.generation);
    Put<std::int32_t>(&out, 16, f.status);
    Put<std::uint32_t>(&out, 20, f.realTime ? 1 : 0);
    Put<std::uint32_t>(&out, 24, static_cast<std::uint32_t>(bins));
    Put<std::uint32_t>(&out, 28, static_cast<std::uint32_t>(f.filled));
    Put<double>(&out, 32, f.startFreq);
    Put<double>(&out, 40, f.binSize);
    Put<std::uint32_t>(&out, 48, static_cast<std::uint32_t>(f.frameWidth));
    Put<std::uint32_t>(&out, 52, static_cast<std::uint32_t>(f.frameHeight));
    for (std::size_t i = 0; i < 2; ++i) {
        const bool found = i < peaks.size();
        Put<double>(&out, 56 + 8 * i, found ? peaks[i].frequency : none);
        Put<float>(&out, 72 + 4 * i, found ? f.max[static_cast<std::size_t>(peaks[i].bin)] : static_cast<float>(none));
    }
    std::memcpy(&out[kFrameHeaderBytes], f.min.data(), 4 * bins);
    std::memcpy(&out[kFrameHeaderBytes + 4 * bins], f.max.data(), 4 * bins);
    char* image = &out[kFrameHeaderBytes + 8 * bins];
    for (std::size_t i = 0; i < cells; ++i) image[i] = static_cast<char>(DensityCode(f.image[i]));
    return out;
}

}  // namespace qortool
