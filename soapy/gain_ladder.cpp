#include "gain_ladder.h"

#include <cmath>

#include "qor_api.h"

namespace qorsoapy {

GainLadder::GainLadder(int deviceType) {
    const bool orsk = deviceType == DeviceTypeOrskA || deviceType == DeviceTypeOrskB;
    attenStepDb_ = orsk ? 10.0 : 5.0;
    gainIndexDb_[0] = 0.0;
    gainIndexDb_[1] = orsk ? 14.0 : 16.0;
    gainIndexDb_[2] = orsk ? 26.0 : 28.0;
    hasPreamp_ = deviceType == DeviceTypeVelmB;
    for (int atten = 3; atten >= 0; --atten) rungs_.push_back({atten, 0, false});
    rungs_.push_back({0, 1, false});
    rungs_.push_back({0, 2, false});
    if (hasPreamp_) rungs_.push_back({0, 2, true});
}

double GainLadder::Overall(const LevelSetting& s) const {
    return -s.atten * attenStepDb_ + gainIndexDb_[s.gain] + (s.preamp ? kPreampDb : 0.0);
}

LevelSetting GainLadder::ForOverall(double db) const {
    LevelSetting chosen = rungs_.front();
    // Half a dB of slack, so that a value read back and written again keeps its rung.
    for (const LevelSetting& rung : rungs_) {
        if (Overall(rung) <= db + 0.5) chosen = rung;
    }
    return chosen;
}

int GainLadder::NearestGainIndex(double db) const {
    int best = 0;
    for (int i = 1; i < 3; ++i) {
        if (std::fabs(gainIndexDb_[i] - db) < std::fabs(gainIndexDb_[best] - db)) best = i;
    }
    return best;
}

}  // namespace qorsoapy
