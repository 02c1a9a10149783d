#include "e2e_slow_support.h"

#include <algorithm>
#include <cmath>

namespace slowtest {
namespace {

// The calibration folder of this test process, removed when it ends.
const e2e::TempFolder calFolder("e2e_slow");

std::string BenchJson(const std::vector<Unit>& units) {
    std::vector<e2e::BenchUnit> bench;
    for (const Unit& unit : units) {
        bench.push_back({unit.serial, unit.type, unit.onDeviceCalibration, NAN, unit.noiseFloor, unit.tones});
    }
    return e2e::BenchJson(bench);
}

}  // namespace

std::string LoadBench(const std::vector<Unit>& units) {
    const e2e::Sim* sim = Instrument();
    if (!sim) return "the D2XX library is no virtual instrument";
    if (sim->loadBenchJson(BenchJson(units).c_str()) != 0) return std::string("bench refused: ") + sim->lastError();
    if (calFolder.Path().empty()) return "no calibration folder";
    // A unit without calibration on board finds its table file in the cache,
    // as if downloaded before, and gives its unit block page by page.
    for (const Unit& unit : units) {
        if (!unit.onDeviceCalibration && unit.type >= 2 && !calFolder.CopyTableFile(unit.serial)) {
            return "no table file of " + std::to_string(unit.serial);
        }
    }
    calFolder.UseAsCalibrationCache();
    return "";
}

std::string OpenUnits(const std::vector<Unit>& units, std::map<unsigned, int>* devices) {
    const std::string failure = LoadBench(units);
    if (!failure.empty()) return failure;
    for (const Unit& unit : units) {
        int device = -1;
        const qorStatus status = qorOpenDeviceBySerialNumber(&device, static_cast<int>(unit.serial));
        if (status != qorNoError) return "open " + std::to_string(unit.serial) + ": " + qorGetErrorString(status);
        (*devices)[unit.serial] = device;
    }
    return "";
}

void CloseUnits(std::map<unsigned, int>* devices) {
    for (const auto& [serial, device] : *devices) qorCloseDevice(device);
    devices->clear();
}

int Trace::PeakBin() const {
    return static_cast<int>(std::max_element(max.begin(), max.end()) - max.begin());
}

double Trace::MeanDb(const std::vector<double>& trace, int away, int guard) {
    double sum = 0.0;
    int count = 0;
    for (int i = 0; i < static_cast<int>(trace.size()); ++i) {
        if (away >= 0 && std::abs(i - away) <= guard) continue;
        sum += trace[static_cast<std::size_t>(i)];
        ++count;
    }
    return count ? sum / count : NAN;
}

Trace Measure(int device, const Sweep& s, int sweeps) {
    Trace t;
    qorConfigCenterSpan(device, s.center, s.span);
    qorConfigSweepCoupling(device, s.rbw, s.vbw > 0.0 ? s.vbw : s.rbw, s.reject);
    qorConfigLevel(device, s.refLevel);
    if (s.atten >= 0 || s.gain >= 0 || s.preamp) qorConfigGainAtten(device, s.atten, s.gain, s.preamp);
    qorConfigRBWShape(device, s.shape);
    qorConfigProcUnits(device, s.units);
    qorConfigAcquisition(device, s.detector, s.scale);
    t.initiate = qorInitiate(device, ModeSweep);
    if (t.initiate < 0) return t;
    qorQuerySweepInfo(device, &t.length, &t.start, &t.bin);
    t.min.assign(static_cast<std::size_t>(std::max(t.length, 0)), 0.0);
    t.max = t.min;
    for (int k = 0; k < sweeps; ++k) t.get = qorGetSweep_64f(device, t.min.data(), t.max.data());
    qorAbort(device);
    return t;
}

}  // namespace slowtest
