// What the hopped-sweep tests share: the virtual instrument's control calls,
// a calibration folder of the run, and sweeps through the C API with the
// tones found in them.
#ifndef QOR_TESTS_E2E_FAST_FIXTURE_H
#define QOR_TESTS_E2E_FAST_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "e2e_bench.h"
#include "qor_api.h"

namespace fastsweep {

using e2e::BenchJson;
using e2e::Payload;
using e2e::Commands;
using e2e::Sim;
using e2e::TheSim;
using e2e::Tone;

// A bench unit with calibration on board and a scene of CW tones.
inline e2e::BenchUnit FastUnit(unsigned serial, int type, const std::vector<Tone>& tones) {
    return {serial, type, true, 30.0, -140.0, tones};
}

// One sweep's result with the grid it lies on.
struct Trace {
    int length = 0;
    double startFreq = 0.0;
    double binSize = 0.0;
    std::vector<float> min, max;

    double FrequencyOf(int bin) const { return startFreq + bin * binSize; }
    // Strongest bin of the max trace within `reach` Hz of `frequency`; -1 if none lies there.
    int PeakNear(double frequency, double reach) const {
        return e2e::PeakNear(max, startFreq, binSize, frequency, reach);
    }
};

// Opens units once per suite, in a calibration folder of the run.
class FastSweepSuite : public ::testing::Test {
protected:
    static std::unique_ptr<e2e::TempFolder>& Folder() {
        static std::unique_ptr<e2e::TempFolder> folder;
        return folder;
    }
    static void EnterCalibrationFolder(const char* tag) {
        Folder() = std::make_unique<e2e::TempFolder>((std::string("e2e_fast_") + tag).c_str());
        Folder()->UseAsCalibrationCache();
    }
    static void LeaveCalibrationFolder() {
        for (int device = 0; device < 8; ++device) qorCloseDevice(device);
        Folder().reset();
    }
    // Opens the unit, -1 on failure.
    static int Open(unsigned serial) {
        int device = -1;
        return qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)) == qorNoError ? device : -1;
    }

    // One whole sweep from `start` to `stop`.
    static Trace Sweep(int device, double start, double stop, double rbw, bool reject, int shape = 1) {
        Trace t;
        EXPECT_EQ(qorNoError, qorConfigCenterSpan(device, (start + stop) / 2, stop - start));
        EXPECT_EQ(qorNoError, qorConfigSweepCoupling(device, rbw, rbw, reject));
        EXPECT_EQ(qorNoError, qorConfigRBWShape(device, shape));
        EXPECT_EQ(qorNoError, qorInitiate(device, 0));
        EXPECT_EQ(qorNoError, qorQuerySweepInfo(device, &t.length, &t.startFreq, &t.binSize));
        if (t.length <= 0) return t;
        t.min.resize(t.length);
        t.max.resize(t.length);
        EXPECT_EQ(qorNoError, qorGetSweep_32f(device, t.min.data(), t.max.data()));
        return t;
    }
};

// A type 2 and a type 4 unit with their scenes, opened once per suite.
class FastSweepPairSuite : public FastSweepSuite {
protected:
    static void OpenPair(const char* tag, unsigned velmSerial, const std::vector<Tone>& velmTones,
                         unsigned orskSerial, const std::vector<Tone>& orskTones) {
        const Sim* sim = TheSim();
        if (!sim) return;
        ASSERT_EQ(0, sim->loadBenchJson(
                         BenchJson({FastUnit(velmSerial, 2, velmTones), FastUnit(orskSerial, 4, orskTones)}).c_str()))
            << sim->lastError();
        EnterCalibrationFolder(tag);
        velm = Open(velmSerial);
        orsk = Open(orskSerial);
    }
    static void TearDownTestSuite() { LeaveCalibrationFolder(); }
    void SetUp() override {
        if (!TheSim()) GTEST_SKIP() << "the virtual instrument is not loaded (QOR_D2XX_LIBRARY)";
        ASSERT_GE(velm, 0);
        ASSERT_GE(orsk, 0);
    }

    static inline int velm = -1, orsk = -1;
};

// The middle of the bins within 3 dB of the peak: a flat-top RBW shows a
// tone flat over several bins, so its highest bin says little.
inline double PeakCentre(const Trace& t, int peak) {
    int low = peak, high = peak;
    while (low > 0 && t.max[low - 1] > t.max[peak] - 3.0f) --low;
    while (high < t.length - 1 && t.max[high + 1] > t.max[peak] - 3.0f) ++high;
    return (t.FrequencyOf(low) + t.FrequencyOf(high)) / 2;
}

// Every tone that lies in the trace within one bin and `tolerance` dB of its level.
inline void ExpectTones(const Trace& t, const std::vector<Tone>& tones, double tolerance = 0.5) {
    int seen = 0;
    for (const Tone& tone : tones) {
        if (tone.frequency < t.FrequencyOf(0) || tone.frequency > t.FrequencyOf(t.length - 1)) continue;
        ++seen;
        const int peak = t.PeakNear(tone.frequency, std::min(20 * t.binSize, 300e3));
        ASSERT_GE(peak, 0) << tone.frequency;
        EXPECT_NEAR(PeakCentre(t, peak), tone.frequency, t.binSize) << "tone at " << tone.frequency;
        EXPECT_NEAR(t.max[peak], tone.level, tolerance) << "tone at " << tone.frequency;
    }
    EXPECT_GT(seen, 0) << "no tone in the trace";
}

}  // namespace fastsweep

#endif
