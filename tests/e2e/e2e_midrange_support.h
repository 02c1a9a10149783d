// What the midrange and broadband end-to-end tests share beyond the common
// bench helpers: a bench of units at 30 C (type 3 with its table file in the
// calibration folder of the process), and whole sweeps through the C API.
#ifndef QOR_TESTS_E2E_MIDRANGE_SUPPORT_H
#define QOR_TESTS_E2E_MIDRANGE_SUPPORT_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "e2e_bench.h"
#include "qor_api.h"

namespace widetest {

using e2e::Tone;

inline const e2e::Sim* Instrument() { return e2e::TheSim(); }

// A unit of the bench; types 2 and 4 serve their whole calibration, type 3 never does.
inline e2e::BenchUnit Unit(unsigned serial, int type, std::vector<Tone> tones, double noiseFloor = -165.0) {
    return {serial, type, type != 3, 30.0, noiseFloor, std::move(tones)};
}

// Loads the bench, puts the table files of type 3 units into the calibration
// folder of the process and points the library at it. Empty, or why it failed.
inline std::string LoadBench(const std::vector<e2e::BenchUnit>& units) {
    static const e2e::TempFolder folder("e2e_wide");
    const e2e::Sim* sim = Instrument();
    if (!sim) return "the D2XX library is no virtual instrument";
    if (sim->loadBenchJson(e2e::BenchJson(units).c_str()) != 0) return std::string("bench refused: ") + sim->lastError();
    if (folder.Path().empty()) return "no calibration folder";
    for (const e2e::BenchUnit& unit : units) {
        if (!unit.onDeviceCalibration && !folder.CopyTableFile(unit.serial)) return "no table file";
    }
    folder.UseAsCalibrationCache();
    return "";
}

// Opens the unit; -1 on failure.
inline int Open(unsigned serial) {
    int device = -1;
    return qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)) == qorNoError ? device : -1;
}

struct Sweep {
    double start = 0.0;
    double stop = 0.0;
    double rbw = 10e3;
    double vbw = 0.0;  // 0: the RBW
    bool reject = false;
    double refLevel = -20.0;
    int shape = 1;  // flat top
};

struct Trace {
    qorStatus initiate = qorUnknownErr;
    qorStatus get = qorUnknownErr;
    int length = 0;
    double startFreq = 0.0;
    double binSize = 0.0;
    std::vector<double> min, max;

    double FrequencyOf(int bin) const { return startFreq + bin * binSize; }
    int PeakNear(double frequency, double reach) const {
        return e2e::PeakNear(max, startFreq, binSize, frequency, reach);
    }
    // Highest value of the max trace within `reach` Hz of `frequency`.
    double LevelNear(double frequency, double reach) const {
        const int peak = PeakNear(frequency, reach);
        return peak < 0 ? -300.0 : max[peak];
    }
};

// Configures the sweep and starts the sweep mode.
inline qorStatus Initiate(int device, const Sweep& s) {
    qorConfigCenterSpan(device, (s.start + s.stop) / 2, s.stop - s.start);
    qorConfigSweepCoupling(device, s.rbw, s.vbw > 0.0 ? s.vbw : s.rbw, s.reject);
    qorConfigLevel(device, s.refLevel);
    qorConfigRBWShape(device, s.shape);
    return qorInitiate(device, ModeSweep);
}

// Starts the sweep mode, takes one trace and stops.
inline Trace Measure(int device, const Sweep& s) {
    Trace t;
    t.initiate = Initiate(device, s);
    if (t.initiate < 0) return t;
    qorQuerySweepInfo(device, &t.length, &t.startFreq, &t.binSize);
    t.min.assign(static_cast<size_t>(std::max(t.length, 0)), 0.0);
    t.max = t.min;
    t.get = qorGetSweep_64f(device, t.min.data(), t.max.data());
    qorAbort(device);
    return t;
}

}  // namespace widetest

#endif
