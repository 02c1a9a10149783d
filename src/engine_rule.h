// Which engine a mode runs with, and the limits it puts on the bandwidths:
// pure functions of the settings and the device type.
#ifndef QOR_ENGINE_RULE_H
#define QOR_ENGINE_RULE_H

#include "settings.h"

namespace qor {

enum class SweepEngineKind { Broadband, Slow, Fast, Midrange };

struct SweepEngineChoice {
    SweepEngineKind kind;
    double rbw;       // held to the engine's range (unchanged for broadband)
    bool rbwLimited;  // the hold changed it: status 4
};

SweepEngineChoice ChooseSweepEngine(const Settings& settings, int deviceType);

// The longest capture of the narrow sweep, 8.6 s of samples.
constexpr int kMaxSlowCaptureSamples = 1 << 22;

// Frames of the video average: round(rbw / vbw), held to what the engine's
// trace can take for an FFT of `fftSize` (the narrow sweep: to captures of at
// most kMaxSlowCaptureSamples). `limited` tells whether it was held.
int RbwToVbwRatio(SweepEngineKind kind, double rbw, double vbw, int fftSize, bool* limited);

// Samples a sweep step captures: fftSize x ratio + 767, down to a multiple of 512.
int SweepSampleCount(int fftSize, int rbwToVbw);

struct RealTimeChoice {
    qorStatus status;  // 0, 4 when rbw was held, -4 when the span is out of range
    double rbw;
};

RealTimeChoice ChooseRealTime(const Settings& settings);

}  // namespace qor

#endif
