#include "trace_units.h"

#include "ipps.h"

namespace qor {
namespace {

// dBm to dB over 1 mV in 50 ohm, and ln(10) / 20 as a float: the 64-bit form
// widens that float rather than taking the exact value.
constexpr double kDbmToDbmv = 46.9897;
constexpr float kDbToNeper = 0.115129255f;

}  // namespace

void DbmToMillivolts(float* trace, int length) {
    if (length < 1) return;
    ippsAddC_32f_I(static_cast<float>(kDbmToDbmv), trace, length);
    ippsMulC_32f_I(kDbToNeper, trace, length);
    ippsExp_32f_A21(trace, trace, length);
}

void DbmToMillivolts(double* trace, int length) {
    if (length < 1) return;
    ippsAddC_64f_I(kDbmToDbmv, trace, length);
    ippsMulC_64f_I(static_cast<double>(kDbToNeper), trace, length);
    ippsExp_64f_I(trace, length);
}

}  // namespace qor
