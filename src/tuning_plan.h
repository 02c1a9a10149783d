// The synthesizer's arithmetic: a wanted analyzer frequency becomes the VCO's
// 10 MHz integer, a fraction over a preferred modulus and a binary output
// divider; what cannot be reached exactly is reported as a residual in Hz,
// which the engines take out digitally.
#ifndef QOR_TUNING_PLAN_H
#define QOR_TUNING_PLAN_H

#include <array>
#include <cstdint>

#include "device_family.h"

namespace qor {

// One tuning of the synthesizer and what it really gives.
struct LoTuning {
    int32_t integer = 0;      // VCO in 10 MHz units, whole part
    int32_t fraction = 0;     // fractional numerator
    int32_t modulus = 2;      // fractional denominator
    int32_t dividerLog2 = 0;  // output division, as a power of two
    double loFrequency = 0.0;     // the LO this tuning gives
    double tunedFrequency = 0.0;  // the analyzer frequency it gives
    double ifOffset = 0.0;        // the IF it was made for
    double residual = 0.0;        // wanted minus tunedFrequency, Hz
    int32_t path = 3;             // first-LO selector of the 12.4 GHz family, set before planning
};

class TuningPlan {
public:
    static constexpr int kModulusCount = 1000;
    // First LOs of the 12.4 GHz family, by path.
    static constexpr double kFirstLo[4] = {7800000000.0, 7840000000.0, 8760000000.0, 8800000000.0};

    // On the family of `family` (which outlives the plan); without one,
    // the 4.4 GHz family's arithmetic.
    TuningPlan();
    explicit TuningPlan(const DeviceFamily& family);

    // Plans `frequency` to land at `ifOffset` (LO above it when `highSide`),
    // never with `avoidModulus` (-1: none). `band` only counts on the
    // 12.4 GHz family, where bands 2 and above go through the first mixer at
    // kFirstLo[record.path]. Fills `record` and returns its residual.
    double PlanTuning(double frequency, double ifOffset, bool highSide, int avoidModulus, LoTuning& record,
                      int band) const;

    // The candidate moduli, in order of preference.
    const std::array<int32_t, kModulusCount>& moduli() const { return moduli_; }

    LoTuning recordA;  // the usual tuning
    LoTuning recordB;  // the second one, for engines that alternate between two IFs

private:
    static const DeviceFamily kNoFirstMixer;

    const DeviceFamily& family_;
    std::array<int32_t, kModulusCount> moduli_;
};

// The path rule of the 12.4 GHz family, shared by every caller of PlanTuning.
inline int32_t OrskPathForBand(int band) { return (band == 2 || band == 4) ? 0 : 3; }

}  // namespace qor

#endif
