// End-to-end measurement through the C API on the virtual instrument: the
// instrument's control interface (reached in the very library that the
// analyzer library loaded), a bench per test, a calibration folder of the
// test's own, and one narrow sweep measured from configuration to trace.
#ifndef QOR_TESTS_E2E_SLOW_SUPPORT_H
#define QOR_TESTS_E2E_SLOW_SUPPORT_H

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "e2e_bench.h"
#include "qor_api.h"

namespace slowtest {

using e2e::Tone;

struct Unit {
    unsigned serial;
    int type;
    std::vector<Tone> tones;
    double noiseFloor = -160.0;
    bool onDeviceCalibration = true;
};

// Null when the D2XX library of the run is not the virtual instrument.
inline const e2e::Sim* Instrument() { return e2e::TheSim(); }

// Loads a fast-clock, immediate-pacing bench of `units`, puts the table
// files of the units without on-device calibration into the calibration
// folder of the process and points the library at it. An empty string, or
// why it failed.
std::string LoadBench(const std::vector<Unit>& units);

// LoadBench, then opens every unit: `devices` maps serials to device
// indices. An empty string, or why it failed.
std::string OpenUnits(const std::vector<Unit>& units, std::map<unsigned, int>* devices);
void CloseUnits(std::map<unsigned, int>* devices);

struct Sweep {
    double center = 0.0;
    double span = 100e3;
    double rbw = 1e3;
    double vbw = 0.0;  // 0: the RBW
    bool reject = false;
    double refLevel = -20.0;
    int atten = -1;
    int gain = -1;
    bool preamp = false;
    int shape = 1;
    int detector = 0;
    int units = 0;
    int scale = 0;
};

struct Trace {
    qorStatus initiate = qorUnknownErr;
    qorStatus get = qorUnknownErr;
    int length = 0;
    double start = 0.0;
    double bin = 0.0;
    std::vector<double> min, max;

    int PeakBin() const;
    double Frequency(int bin) const { return start + bin * this->bin; }
    // Mean of a trace in dB over the bins farther than `guard` bins from `away`.
    static double MeanDb(const std::vector<double>& trace, int away = -1, int guard = 0);
};

// Configures `sweep`, starts the sweep mode, takes `sweeps` traces (the
// last one is kept) and stops the mode.
Trace Measure(int device, const Sweep& sweep, int sweeps = 1);

// A suite that opens the units of `Scene` once; a test skips without the
// virtual instrument and fails when they did not open.
template <const std::vector<Unit>& (*Scene)()>
class SceneSuite : public ::testing::Test {
protected:
    static void SetUpTestSuite() { failure_ = OpenUnits(Scene(), &devices_); }
    static void TearDownTestSuite() { CloseUnits(&devices_); }
    void SetUp() override {
        if (!Instrument()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        ASSERT_EQ(failure_, "");
    }

    static inline std::string failure_;
    static inline std::map<unsigned, int> devices_;
};

}  // namespace slowtest

#endif
