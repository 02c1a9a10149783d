// The level of a sweep: the attenuator step and gain index the engines use,
// and the preamplifier. Either both are configured, or the automatic choice
// starts from the middle setting, takes the preamplifier for weak reference
// levels, computes the corrections and lets the unit's model pick the
// attenuation and gain for the reference level from the smallest one.
#ifndef QOR_LEVEL_CHOICE_H
#define QOR_LEVEL_CHOICE_H

#include <functional>

#include "settings.h"

namespace qor {

class DeviceCorr;

// Takes the configured attenuator step and gain index for both passes when
// both are given; false when the choice is automatic.
bool TakeConfiguredLevel(Settings& settings);

// Where the automatic level may take the preamplifier: a sweep only when it
// starts at 250 kHz or above; a stream at any frequency.
enum class PreampReach { From250kHz, Everywhere };

// The automatic level's starting point: attenuator step 2, the middle gain,
// and the preamplifier for reference levels of -30 dBm and below where it
// reaches.
void StartAutomaticLevel(Settings& settings, PreampReach reach);

// The smallest of `count` corrections (0 for none), on which the automatic
// choice rests.
double SmallestCorrection(const double* corrections, int count);

// The level of a streaming engine, for any frequency of its stream: the
// configured one, or the automatic choice from the smallest of the `count`
// corrections `fill` writes to `table`. `fill` runs last for the level taken.
void ChooseStreamLevel(Settings& settings, DeviceCorr* corr, const std::function<void()>& fill, const double* table,
                       int count);

}  // namespace qor

#endif
