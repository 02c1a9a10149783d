#include "settings.h"

#include <algorithm>
#include <cmath>

#include "hold.h"

namespace qor {
namespace {

constexpr double kLowestRefLevel = -200.0;

}  // namespace

double IqBandwidthLimit(int decimationLog2) {
    static const double kLimits[8] = {250000.0, 225000.0, 100000.0, 50000.0, 20000.0, 12000.0, 5000.0, 3000.0};
    return kLimits[decimationLog2];
}

void Settings::ResetForOpen(int deviceType) {
    const double keptAudioCenter = audioCenter;
    const Settings defaults;
    CopyFrom(defaults);
    audioCenter = keptAudioCenter;
    const bool orsk = deviceType == DeviceTypeOrskA || deviceType == DeviceTypeOrskB;
    minFreq = orsk ? 100000.0 : 1.0;
    maxFreq = orsk ? 1.3e10 : 4.4e9;
}

void Settings::CopyFrom(const Settings& entry) {
    const int32_t kept[4] = {attenUsed, gainUsed, attenUsedB, gainUsedB};
    *this = entry;
    attenUsed = kept[0];
    gainUsed = kept[1];
    attenUsedB = kept[2];
    gainUsedB = kept[3];
}

qorStatus Settings::ConfigAcquisition(int newDetector, int newScale) {
    if (newDetector < 0 || newDetector > 1) return qorInvalidDetectorErr;
    if (newScale < 0 || newScale > 3) return qorInvalidScaleErr;
    detector = newDetector;
    scale = newScale;
    logScale = newScale == 0 || newScale == 2;
    return qorNoError;
}

qorStatus Settings::ConfigCenterSpan(double newCenter, double newSpan) {
    if (!(newSpan >= 1.0)) return qorFrequencyRangeErr;
    const double newStart = newCenter - newSpan / 2.0;
    const double newStop = newCenter + newSpan / 2.0;
    if (!(newStart >= minFreq) || !(newStop <= maxFreq)) return qorFrequencyRangeErr;
    center = newCenter;
    span = newSpan;
    start = newStart;
    stop = newStop;
    return qorNoError;
}

qorStatus Settings::ConfigLevel(double newRefLevel) {
    // Beyond the top the level is held at 20 dBm. Refused on purpose, and held
    // at a floor no unit reaches, so that the level arithmetic of the engines
    // never meets a NaN or overflows an integer: a level that is no number,
    // and one below -200 dBm.
    if (std::isnan(newRefLevel)) return qorInvalidParameterErr;
    const bool held = Hold(newRefLevel, kLowestRefLevel, 20.0);
    refLevel = newRefLevel;
    atten = -1;
    gain = -1;
    preamp = false;
    return held ? qorParameterClamped : qorNoError;
}

qorStatus Settings::ConfigGainAtten(int newAtten, int newGain, bool newPreamp) {
    bool held = false;
    newAtten = std::max(newAtten, -1);
    newGain = std::max(newGain, -1);
    held |= Hold(newAtten, -1, 3);
    held |= Hold(newGain, -1, 2);
    atten = newAtten;
    gain = newGain;
    preamp = newPreamp;
    return held ? qorParameterClamped : qorNoError;
}

qorStatus Settings::ConfigSweepCoupling(double newRbw, double newVbw, bool newReject) {
    // Written so that NaN fails every test.
    if (!(newVbw <= newRbw) || !(newRbw >= 0.1) || !(newRbw <= 6e6) || !(newVbw >= 0.1)) return qorBandwidthErr;
    rbw = newRbw;
    vbw = newVbw;
    reject = newReject;
    return qorNoError;
}

qorStatus Settings::ConfigRBWShape(int newShape) {
    if (newShape < 1 || newShape > 2) return qorInvalidParameterErr;
    rbwShape = newShape;
    return qorNoError;
}

qorStatus Settings::ConfigProcUnits(int newUnits) {
    if (newUnits < 0 || newUnits > 3) return qorInvalidParameterErr;
    procUnits = newUnits;
    return qorNoError;
}

qorStatus Settings::ConfigIQ(int decimation, double bandwidth) {
    int log2 = 0;
    while (log2 <= 7 && (1 << log2) != decimation) ++log2;
    if (log2 > 7 || std::isnan(bandwidth)) return qorInvalidParameterErr;
    iqDecimationLog2 = log2;
    iqBandwidth = std::clamp(bandwidth, 100.0, IqBandwidthLimit(log2));
    return qorNoError;
}

qorStatus Settings::ConfigAudio(int newType, double centerFreq, double bandwidth, double lowPass, double highPass,
                                double deemphasis) {
    if (newType < 0 || newType > 4) return qorInvalidParameterErr;
    // Stored as given, but never a value that is no finite number.
    for (const double v : {centerFreq, bandwidth, lowPass, highPass, deemphasis}) {
        if (!std::isfinite(v)) return qorInvalidParameterErr;
    }
    audioType = newType;
    audioCenter = centerFreq;
    audioBandwidth = bandwidth;
    audioLowPass = lowPass;
    audioHighPass = highPass;
    audioDeemphasis = deemphasis;
    return qorNoError;
}

qorStatus Settings::ConfigRealTime(double frameScale, int frameRate) {
    bool held = Hold(frameScale, 10.0, 200.0);
    held |= Hold(frameRate, 4, 30);
    rtFrameScale = frameScale;
    rtFrameRate = frameRate;
    return held ? qorParameterClamped : qorNoError;
}

qorStatus Settings::ConfigRealTimeOverlap(double overlap) {
    const bool held = Hold(overlap, 0.125, 10.0);
    rtOverlap = overlap;
    return held ? qorParameterClamped : qorNoError;
}

qorStatus Settings::ConfigTgSweep(int sweepSize, bool highRange, bool preampWanted) {
    Hold(sweepSize, 10, 1024);
    tgSweepSize = sweepSize;
    tgHighRange = highRange;
    tgPreamp = preampWanted;
    return qorNoError;
}

}  // namespace qor
