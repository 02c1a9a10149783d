// What a device is to measure. One record per device index in the settings
// table, written by the configuration calls, and one copy inside each Device,
// refreshed at qorInitiate, which the engines read.
#ifndef QOR_SETTINGS_H
#define QOR_SETTINGS_H

#include "qor_api.h"

namespace qor {

struct Settings {
    int32_t detector = 0;      // 0 min/max, 1 average
    int32_t scale = 0;         // 0, 2 dBm; 1, 3 mV
    double center = 9e8;
    double span = 2e6;
    double start = 8.99e8;
    double stop = 9.01e8;
    double refLevel = -20.0;
    int32_t atten = -1;        // steps 0..3, -1 automatic
    int32_t gain = -1;         // index 0..2, -1 automatic
    bool preamp = false;
    double rbw = 3000.0;
    double vbw = 3000.0;
    bool reject = false;
    int32_t rbwShape = 1;
    int32_t procUnits = 0;     // 0 log, 1 voltage, 2 power, 3 none
    int32_t iqDecimationLog2 = 1;
    double iqBandwidth = 250000.0;
    int32_t audioType = 0;
    double audioCenter = 0.0;  // survives an open
    double audioBandwidth = 120000.0;
    double audioLowPass = 100000.0;
    double audioHighPass = 8000.0;
    double audioDeemphasis = 75.0;
    double rtFrameScale = 100.0;
    int32_t rtFrameRate = 30;
    double rtOverlap = 0.125;
    // Working values the engines write; never copied at qorInitiate.
    int32_t attenUsed = 0;
    int32_t gainUsed = 0;
    int32_t attenUsedB = 0;
    int32_t gainUsedB = 0;
    int32_t tgSweepSize = 200;
    bool tgHighRange = true;
    bool tgPreamp = true;
    double minFreq = 1.0;
    double maxFreq = 4.4e9;
    bool logScale = true;

    // Defaults of every field but audioCenter and the working values; frequency
    // limits of the device type.
    void ResetForOpen(int deviceType);
    // The copy at qorInitiate: every field of `entry` but the four working values.
    void CopyFrom(const Settings& entry);

    qorStatus ConfigAcquisition(int detector, int scale);
    qorStatus ConfigCenterSpan(double center, double span);
    qorStatus ConfigLevel(double refLevel);
    qorStatus ConfigGainAtten(int atten, int gain, bool preamp);
    qorStatus ConfigSweepCoupling(double rbw, double vbw, bool reject);
    qorStatus ConfigRBWShape(int rbwShape);
    qorStatus ConfigProcUnits(int procUnits);
    qorStatus ConfigIQ(int decimation, double bandwidth);
    qorStatus ConfigAudio(int audioType, double centerFreq, double bandwidth, double lowPass, double highPass,
                          double deemphasis);
    qorStatus ConfigRealTime(double frameScale, int frameRate);
    qorStatus ConfigRealTimeOverlap(double overlap);
    qorStatus ConfigTgSweep(int sweepSize, bool highRange, bool preamp);
};

// The IQ filter bandwidth limit of a decimation 2^log2 (log2 0..7).
double IqBandwidthLimit(int decimationLog2);

}  // namespace qor

#endif
