#include "engine_rule.h"

#include <algorithm>
#include <cmath>

namespace qor {

SweepEngineChoice ChooseSweepEngine(const Settings& s, int deviceType) {
    if (s.rbw > 300000.0 && s.start >= 2e8 && s.stop - s.start >= 2e8) {
        return {SweepEngineKind::Broadband, s.rbw, false};
    }
    const bool slow = s.span < 201000.0;
    bool noMidrange = s.start < 1.6e7 && s.reject;
    if (deviceType == DeviceTypeVelm) noMidrange = true;
    if (deviceType == DeviceTypeOrskA && s.start > 4e9) noMidrange = true;
    const bool fast = !slow && !(s.span < 9.9e7 && !noMidrange);

    SweepEngineKind kind = SweepEngineKind::Midrange;
    double low = 30.0, high = 250000.0;
    if (slow) {
        kind = SweepEngineKind::Slow;
        low = 0.1;
        high = 120000.0;
    } else if (fast) {
        kind = SweepEngineKind::Fast;
        low = 6500.0;
    }
    const double rbw = std::clamp(s.rbw, low, high);
    return {kind, rbw, rbw != s.rbw};
}

int RbwToVbwRatio(SweepEngineKind kind, double rbw, double vbw, int fftSize, bool* limited) {
    int ratio = static_cast<int>(std::trunc(std::floor(rbw / vbw + 0.5)));
    int limit = 0;
    if (kind == SweepEngineKind::Fast) limit = 256 / fftSize;
    if (kind == SweepEngineKind::Midrange) limit = 65536 / fftSize;
    // Held on purpose in the narrow sweep too: a video bandwidth far below
    // the RBW would ask for captures of minutes and gigabytes of frames.
    if (kind == SweepEngineKind::Slow) limit = std::max(1, kMaxSlowCaptureSamples / fftSize);
    *limited = limit > 0 && ratio > limit;
    if (*limited) ratio = limit;
    return ratio;
}

int SweepSampleCount(int fftSize, int rbwToVbw) { return (fftSize * rbwToVbw + 767) / 512 * 512; }

RealTimeChoice ChooseRealTime(const Settings& s) {
    const double rbw = std::clamp(s.rbw, 100.0, 10000.0);
    if (s.span < 1000.0 || s.span > 250000.0) return {qorInvalidParameterErr, rbw};
    return {rbw != s.rbw ? qorBandwidthClamped : qorNoError, rbw};
}

}  // namespace qor
