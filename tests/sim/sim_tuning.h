// Test-side programming of the analyzer's synthesizer and path, written from
// the command set, and a plain reference DFT to look at what comes back.
#ifndef QOR_TESTS_SIM_SIM_TUNING_H
#define QOR_TESTS_SIM_SIM_TUNING_H

#include <cmath>
#include <complex>
#include <cstdint>
#include <vector>

#include "sim_host.h"

namespace simtest {

constexpr double kFs = 486111.1111111111;
constexpr double kHighIfs = 22.0 * kFs;
constexpr double kLowIfs = 6.0 * kFs;

inline std::vector<uint8_t> SynthWord(uint32_t w) {
    return {'L', static_cast<uint8_t>(w >> 24), static_cast<uint8_t>(w >> 16), static_cast<uint8_t>(w >> 8),
            static_cast<uint8_t>(w)};
}

// A plain LO above 149.9 MHz: the synthesizer's divided output, nothing
// outboard. Returns the LO the registers give.
inline double TuneLo(Unit& u, double frequency) {
    int dividerLog2 = 0;
    double x = frequency;
    while (x < 2.2e9) {
        x *= 2.0;
        ++dividerLog2;
    }
    const int integer = static_cast<int>(std::floor(x / 1e7));
    const int fraction = static_cast<int>(std::floor((x - integer * 1e7) / 1e5));
    const int modulus = 100;
    u.Send(SynthWord(0x00000000u | (static_cast<uint32_t>(dividerLog2 * 16 + 0x86) << 16) | 0x41BC));
    u.Send({'D', 4});
    u.Send(SynthWord(0x08000000u | (static_cast<uint32_t>(modulus / 32 + 0x80) << 8) | (modulus % 32 * 8 + 1)));
    u.Send(SynthWord((static_cast<uint32_t>(integer / 2) << 16) |
                     (static_cast<uint32_t>((integer % 2 ? 0x80 : 0) + fraction / 32) << 8) | (fraction % 32 * 8)));
    return (integer + fraction / 100.0) * 1e7 / std::ldexp(1.0, dividerLog2);
}

// Attenuator step, gain index (0 least, 2 most) and IF path.
inline void SetPath(Unit& u, int atten, int gain, bool highIf, bool orsk = false, int orskBandFilter = 1) {
    u.Send({'A', static_cast<uint8_t>(atten)});
    const uint8_t a = gain == 1 ? 0 : gain == 2 ? 0 : 0x80;
    const uint8_t b = gain == 2 ? 0x80 : 0;
    u.Send({'I', 0x06, a});
    u.Send({'I', 0x0C, b});
    const int ifFlag = highIf ? 0 : 1;
    u.Send({'F', static_cast<uint8_t>(orsk ? ifFlag * 16 + 8 + orskBandFilter : ifFlag)});
}

inline std::vector<std::complex<double>> Samples(const std::vector<uint8_t>& bytes) {
    std::vector<std::complex<double>> out(bytes.size() / 4);
    for (size_t i = 0; i < out.size(); ++i) {
        const int16_t re = static_cast<int16_t>(bytes[4 * i] | bytes[4 * i + 1] << 8);
        const int16_t im = static_cast<int16_t>(bytes[4 * i + 2] | bytes[4 * i + 3] << 8);
        out[i] = {re / 32768.0, im / 32768.0};
    }
    return out;
}

inline std::vector<std::complex<double>> Capture(Unit& u, int blocks) {
    u.Send({'S', static_cast<uint8_t>(blocks)});
    u.Stream(4);
    return Samples(u.Stream(2048u * blocks));
}

// Level in dB full scale of the complex tone at `b` Hz (long-double DFT bin at that frequency).
inline double ToneLevel(const std::vector<std::complex<double>>& x, double b, size_t from = 0, size_t count = 0) {
    if (count == 0) count = x.size() - from;
    std::complex<long double> sum = 0;
    const long double w = -2.0L * 3.14159265358979323846L * b / kFs;
    for (size_t n = 0; n < count; ++n) {
        const long double phase = w * static_cast<long double>(n);
        sum += std::complex<long double>(x[from + n].real(), x[from + n].imag()) *
               std::complex<long double>(std::cos(phase), std::sin(phase));
    }
    return 20.0 * std::log10(static_cast<double>(std::abs(sum)) / count);
}

}  // namespace simtest

#endif
