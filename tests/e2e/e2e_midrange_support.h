// What the midrange and broadband end-to-end tests share: the virtual
// instrument's control calls (in the very library the analyzer library
// loaded), a bench of CW tones per test, a calibration folder of the
// process, and sweeps through the C API with the tones found in them.
#ifndef QOR_TESTS_E2E_MIDRANGE_SUPPORT_H
#define QOR_TESTS_E2E_MIDRANGE_SUPPORT_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "qor_api.h"
#include "qorsim_calls.h"

namespace widetest {

struct Tone {
    double frequency;
    double level;
};

struct Unit {
    unsigned serial;
    int type;
    std::vector<Tone> tones;
    double noiseFloor = -165.0;
};

// The instrument's control calls; null when the tests don't run on it.
inline const simcontrol::Calls* Instrument() { return simcontrol::Resolve(); }

// Logged payloads of `serial` that begin with `first`.
inline std::vector<std::vector<unsigned char>> Commands(unsigned serial, char first) {
    std::vector<std::vector<unsigned char>> found;
    unsigned char payload[8];
    const simcontrol::Calls* sim = Instrument();
    for (int i = 0; i < sim->commandCount(serial); ++i) {
        const int length = sim->commandLog(serial, i, payload, sizeof payload);
        if (length >= 1 && payload[0] == static_cast<unsigned char>(first)) {
            found.emplace_back(payload, payload + std::min<int>(length, sizeof payload));
        }
    }
    return found;
}

// The calibration folder of this test process, removed when it ends.
inline const std::filesystem::path& CalFolder() {
    struct Folder {
        std::filesystem::path path;
        Folder() {
            std::string pattern = std::filesystem::temp_directory_path().string() + "/qor_e2e_wide_XXXXXX";
            if (mkdtemp(pattern.data()) != nullptr) path = pattern;
        }
        ~Folder() {
            std::error_code ignored;
            if (!path.empty()) std::filesystem::remove_all(path, ignored);
        }
    };
    static const Folder folder;
    return folder.path;
}

inline std::string BenchJson(const std::vector<Unit>& units) {
    std::ostringstream json;
    json.precision(17);
    json << R"({"clock": "fast", "pacing": "immediate", "units": [)";
    for (size_t u = 0; u < units.size(); ++u) {
        const Unit& unit = units[u];
        // Types 2 and 4 serve their whole calibration; type 3 never does.
        json << (u ? ", " : "") << R"({"serial": )" << unit.serial << R"(, "type": )" << unit.type
             << R"(, "onDeviceCalibration": )" << (unit.type == 3 ? "false" : "true")
             << R"(, "temperature": 30.0, "noiseFloor": )" << unit.noiseFloor << R"(, "signals": [)";
        for (size_t t = 0; t < unit.tones.size(); ++t) {
            json << (t ? ", " : "") << R"({"kind": "cw", "frequency": )" << unit.tones[t].frequency
                 << R"(, "level": )" << unit.tones[t].level << "}";
        }
        json << "]}";
    }
    json << "]}";
    return json.str();
}

// Loads a fast-clock, immediate-pacing bench of `units`, puts the table
// files of type 3 units into the calibration folder and points the library
// at it. An empty string, or why it failed.
inline std::string LoadBench(const std::vector<Unit>& units) {
    const simcontrol::Calls* sim = Instrument();
    if (!sim) return "the D2XX library is no virtual instrument";
    if (sim->loadBenchJson(BenchJson(units).c_str()) != 0) return std::string("bench refused: ") + sim->lastError();
    const std::filesystem::path& folder = CalFolder();
    if (folder.empty()) return "no calibration folder";
    setenv("QOR_CAL_URL", "http://127.0.0.1:9", 1);  // no download leaves the machine
    for (const Unit& unit : units) {
        if (unit.type != 3) continue;
        const std::filesystem::path root = folder / "endpoint";
        if (sim->writeCalibrationFiles(unit.serial, root.c_str()) != 0) return "no table file";
        char name[32];
        std::snprintf(name, sizeof name, "D%08u.bin", unit.serial);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (entry.path().filename() == name) {
                std::filesystem::copy_file(entry.path(), folder / name,
                                           std::filesystem::copy_options::overwrite_existing);
            }
        }
    }
    qorSetCalFilePath((folder.string() + "/").c_str());
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
    int BinOf(double frequency) const { return static_cast<int>(std::lround((frequency - startFreq) / binSize)); }
    // Strongest bin of the max trace within `reach` Hz of `frequency`; -1 if none lies there.
    int PeakNear(double frequency, double reach) const {
        const int lo = std::max(0, static_cast<int>(std::ceil((frequency - reach - startFreq) / binSize)));
        const int hi = std::min(length - 1, static_cast<int>(std::floor((frequency + reach - startFreq) / binSize)));
        int best = -1;
        for (int i = lo; i <= hi; ++i) {
            if (best < 0 || max[i] > max[best]) best = i;
        }
        return best;
    }
    // Highest value of the max trace within `reach` Hz of `frequency`.
    double LevelNear(double frequency, double reach) const {
        const int peak = PeakNear(frequency, reach);
        return peak < 0 ? -300.0 : max[peak];
    }
};

// Configures the sweep and starts the sweep mode; the caller takes sweeps.
inline qorStatus Initiate(int device, const Sweep& s) {
    qorConfigCenterSpan(device, (s.start + s.stop) / 2, s.stop - s.start);
    qorConfigSweepCoupling(device, s.rbw, s.vbw > 0.0 ? s.vbw : s.rbw, s.reject);
    qorConfigLevel(device, s.refLevel);
    qorConfigRBWShape(device, s.shape);
    return qorInitiate(device, ModeSweep);
}

// Starts the sweep mode, takes `sweeps` traces (keeping the last) and stops.
inline Trace Measure(int device, const Sweep& s, int sweeps = 1) {
    Trace t;
    const auto begin = std::chrono::steady_clock::now();
    t.initiate = Initiate(device, s);
    if (std::getenv("QOR_E2E_TIMING")) {
        std::printf("initiate %.0f ms\n", std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
    }
    if (t.initiate < 0) return t;
    qorQuerySweepInfo(device, &t.length, &t.startFreq, &t.binSize);
    t.min.assign(static_cast<size_t>(std::max(t.length, 0)), 0.0);
    t.max = t.min;
    for (int k = 0; k < sweeps; ++k) t.get = qorGetSweep_64f(device, t.min.data(), t.max.data());
    qorAbort(device);
    return t;
}

// Every tone in the trace's range at its frequency within `frequencyTolerance`
// Hz and its level within `levelTolerance` dB.
inline void ExpectTones(const Trace& t, const std::vector<Tone>& tones, double frequencyTolerance,
                        double levelTolerance, double reach) {
    for (const Tone& tone : tones) {
        if (tone.frequency < t.FrequencyOf(0) || tone.frequency > t.FrequencyOf(t.length - 1)) continue;
        const int peak = t.PeakNear(tone.frequency, reach);
        ASSERT_GE(peak, 0) << tone.frequency;
        EXPECT_NEAR(t.FrequencyOf(peak), tone.frequency, frequencyTolerance) << "tone at " << tone.frequency;
        EXPECT_NEAR(t.max[peak], tone.level, levelTolerance) << "tone at " << tone.frequency;
    }
}

}  // namespace widetest

#endif
