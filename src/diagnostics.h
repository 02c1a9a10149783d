// The calls that work on an open device outside any measurement mode: the
// self-test of the signal path with the unit's own test source, the choice
// of the frequency reference and its stored correction, and the IF output of
// the 12.4 GHz family, which turns the analyzer into a tuned down-converter
// with no engine behind it.
//
// They run on the application's thread. SelfTest, SetTimebase and
// ConfigIFOutput stop the running engine (Device::Abort) before they touch
// the link, so that the device is idle afterwards, also when they fail; only
// ConfigIFOutput refuses a type without an IF output before that.
#ifndef QOR_DIAGNOSTICS_H
#define QOR_DIAGNOSTICS_H

#include "ipp_types.h"
#include "qor_api.h"

namespace qor {

class Device;

// ---- Rules without hardware ---------------------------------------------

// Level in dB relative to full scale of a self-test capture of `count`
// samples: the mean power of the samples from 1024 on, the first ones being
// the settling of the path.
double SelfTestLevelDb(const Ipp64fc* samples, int count);

// Sets the five pass fields of `results` from its levels, by the limits of
// `deviceType` (2 or 4). A level passes when it lies strictly inside its
// window.
void JudgeSelfTest(int deviceType, SelfTestResults& results);

// The IF output's settings held to what the unit can do.
struct IFOutputSetting {
    double inputFreq;
    double ifOffset;  // the output frequency; negative puts the LO on the other side, inverting the spectrum
    int inputAtten;
    int outputGain;
    qorStatus status;  // 0, or qorParameterClamped when anything was held
};
IFOutputSetting LimitIFOutput(int deviceType, double inputFreq, double outputFreq, int inputAtten, int outputGain);

// ---- On an open device ----------------------------------------------------

// 0 with the results filled; -2 on a type without a test source.
qorStatus SelfTest(Device& d, SelfTestResults& results);
// timebase 1: reference output (12.4 GHz family), 2: external reference
// input. The first good choice lasts until the channels close.
qorStatus SetTimebase(Device& d, int timebase);
// Tunes the IF output; -2 on the 4.4 GHz family, else 0 or 3.
qorStatus ConfigIFOutput(Device& d, double inputFreq, double outputFreq, int inputAtten, int outputGain);
// A timebase correction the library takes: finite and within 1000 ppm of 1
// (far beyond any crystal). Anything else would turn the sweep plans'
// arithmetic into nonsense, so it is refused, and ignored when stored.
bool IsTimebaseCorrection(double correction);
// Stores `correction` in the unit's user area for the next open; a value
// other than 0.0 also becomes the running timebase factor. -4 for anything
// but 0.0 (no stored correction) or a correction IsTimebaseCorrection takes.
qorStatus AdjustTimebase(Device& d, double correction);

}  // namespace qor

#endif
