#include "trace_units.h"

#include <cmath>

namespace qor {
namespace {

// dBm to dB over 1 mV in 50 ohm, and ln(10) / 20 as a float.
constexpr double kDbmToDbmv = 46.9897;
constexpr float kDbToNeper = 0.115129255f;

}  // namespace

void DbmToMillivolts(float* trace, int length) {
    for (int i = 0; i < length; ++i) {
        trace[i] = std::exp((trace[i] + static_cast<float>(kDbmToDbmv)) * kDbToNeper);
    }
}

void DbmToMillivolts(double* trace, int length) {
    const double factor = static_cast<double>(kDbToNeper);
    for (int i = 0; i < length; ++i) trace[i] = std::exp((trace[i] + kDbmToDbmv) * factor);
}

}  // namespace qor
