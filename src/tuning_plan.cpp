#include "tuning_plan.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace qor {
namespace {

constexpr double kVcoLow = 2.2e9;
constexpr double kStepHz = 1e7;  // one unit of `integer` at the VCO
constexpr double kToleranceHz = 10000.0;
constexpr int kMaxDividerLog2 = 40;  // far beyond any real LO; bounds the doubling of absurd inputs

// Moduli with small prime factors 2 and 3 are dearer: they tend to produce
// spurs near the carrier, so they rank later than their size alone would.
int32_t PreferenceKey(int32_t m) {
    if (m % 6 == 0) return m * 6;
    if (m % 3 == 0) return m * 3;
    if (m % 2 == 0) return m * 2;
    return m;
}

}  // namespace

const DeviceFamily TuningPlan::kNoFirstMixer{};

TuningPlan::TuningPlan() : TuningPlan(kNoFirstMixer) {}

TuningPlan::TuningPlan(const DeviceFamily& family) : family_(family) {
    for (int i = 0; i < kModulusCount; ++i) moduli_[i] = i + 2;
    std::sort(moduli_.begin(), moduli_.end(),
              [](int32_t a, int32_t b) { return PreferenceKey(a) < PreferenceKey(b); });
}

double TuningPlan::PlanTuning(double frequency, double ifOffset, bool highSide, int avoidModulus,
                              LoTuning& record, int band) const {
    double wanted = frequency;
    if (family_.IsOrsk() && band >= 2) {
        const double firstLo = kFirstLo[std::clamp<int32_t>(record.path, 0, 3)];
        wanted = band <= 3 ? firstLo - frequency : frequency - firstLo;
    }
    double lo = highSide ? wanted + ifOffset : wanted - ifOffset;

    // The tolerance doubles with the LO, so that it stays 10 kHz at the output.
    double tolerance = kToleranceHz;
    int32_t dividerLog2 = 0;
    while (lo > 0.0 && lo < kVcoLow && dividerLog2 < kMaxDividerLog2) {
        lo *= 2.0;
        tolerance *= 2.0;
        ++dividerLog2;
    }

    // Held to what an int32 can carry, so that nonsense in gives nonsense out, never a trap.
    int32_t integer = static_cast<int32_t>(std::clamp(std::floor(lo * 1e-7), -1e9, 1e9));
    const double rest = lo - integer * kStepHz;
    int32_t fraction = 0;
    int32_t modulus = 2;
    if (rest > kStepHz - tolerance) {
        ++integer;
    } else if (rest >= tolerance) {
        for (const int32_t m : moduli_) {
            if (m == avoidModulus) continue;
            modulus = m;
            fraction = static_cast<int32_t>(std::floor(m * rest * 1e-7 + 0.5));
            if (std::fabs(fraction * kStepHz / m - rest) <= tolerance) break;
        }
    }

    record.integer = integer;
    record.fraction = fraction;
    record.modulus = modulus;
    record.dividerLog2 = dividerLog2;
    record.loFrequency = (static_cast<double>(fraction) / modulus + integer) * kStepHz / std::ldexp(1.0, dividerLog2);
    record.ifOffset = ifOffset;
    record.tunedFrequency = highSide ? record.loFrequency - ifOffset : record.loFrequency + ifOffset;
    record.residual = wanted - record.tunedFrequency;
    return record.residual;
}

}  // namespace qor
