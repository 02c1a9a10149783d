#include "level_choice.h"

#include <algorithm>

#include "corrections.h"

namespace qor {
namespace {

constexpr double kPreampReference = -29.9;
constexpr double kPreampLowest = 250e3;
constexpr int32_t kStartAtten = 2;
constexpr int32_t kStartGain = 1;

}  // namespace

bool TakeConfiguredLevel(Settings& s) {
    if (s.atten < 0 || s.gain < 0) return false;
    s.attenUsed = s.attenUsedB = s.atten;
    s.gainUsed = s.gainUsedB = s.gain;
    return true;
}

void StartAutomaticLevel(Settings& s, PreampReach reach) {
    s.preamp = s.refLevel <= kPreampReference && (reach == PreampReach::Everywhere || s.start >= kPreampLowest);
    s.attenUsed = s.attenUsedB = kStartAtten;
    s.gainUsed = s.gainUsedB = kStartGain;
}

double SmallestCorrection(const double* corrections, int count) {
    return count > 0 ? *std::min_element(corrections, corrections + count) : 0.0;
}

void ChooseStreamLevel(Settings& s, DeviceCorr* corr, const std::function<void()>& fill, const double* table,
                       int count) {
    if (!TakeConfiguredLevel(s)) {
        StartAutomaticLevel(s, PreampReach::Everywhere);
        fill();
        corr->SelectAttenGain(SmallestCorrection(table, count), s.refLevel, &s.attenUsed, &s.gainUsed);
    }
    fill();
}

}  // namespace qor
