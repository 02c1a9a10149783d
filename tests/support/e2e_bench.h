// What the end-to-end tests share on the virtual instrument: the bench they
// load, the calibration folder of the run, the commands a unit saw and the
// tones found in a trace.
#ifndef QOR_TESTS_SUPPORT_E2E_BENCH_H
#define QOR_TESTS_SUPPORT_E2E_BENCH_H

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "qor_api.h"
#include "qorsim_calls.h"

namespace e2e {

using Sim = simcontrol::Calls;
using Payload = std::vector<unsigned char>;

// Null when the suite runs without the virtual instrument.
inline const Sim* TheSim() { return simcontrol::Resolve(); }

struct Tone {
    double frequency;
    double level;
};

struct BenchUnit {
    unsigned serial;
    int type;
    bool onDeviceCalibration = true;
    double temperature = NAN;  // NaN: the bench's own
    double noiseFloor = NAN;   // NaN: the bench's own
    std::vector<Tone> tones;
};

// A fast-clock, immediate-pacing bench of `units`, each with a scene of CW tones.
inline std::string BenchJson(const std::vector<BenchUnit>& units) {
    std::ostringstream json;
    json.precision(17);
    json << R"({"clock": "fast", "pacing": "immediate", "units": [)";
    for (std::size_t u = 0; u < units.size(); ++u) {
        const BenchUnit& unit = units[u];
        json << (u ? ", " : "") << R"({"serial": )" << unit.serial << R"(, "type": )" << unit.type
             << R"(, "onDeviceCalibration": )" << (unit.onDeviceCalibration ? "true" : "false");
        if (!std::isnan(unit.temperature)) json << R"(, "temperature": )" << unit.temperature;
        if (!std::isnan(unit.noiseFloor)) json << R"(, "noiseFloor": )" << unit.noiseFloor;
        json << R"(, "signals": [)";
        for (std::size_t t = 0; t < unit.tones.size(); ++t) {
            json << (t ? ", " : "") << R"({"kind": "cw", "frequency": )" << unit.tones[t].frequency
                 << R"(, "level": )" << unit.tones[t].level << "}";
        }
        json << "]}";
    }
    json << "]}";
    return json.str();
}

// The command payloads logged for `serial` since the log was cleared, in order.
inline std::vector<Payload> Commands(unsigned serial) {
    std::vector<Payload> found;
    unsigned char payload[8];
    const Sim* sim = TheSim();
    for (int i = 0; i < sim->commandCount(serial); ++i) {
        const int length = sim->commandLog(serial, i, payload, sizeof payload);
        if (length >= 1) found.emplace_back(payload, payload + std::min<int>(length, sizeof payload));
    }
    return found;
}

// How many logged commands of `serial` begin with `first` (and `second`).
inline int CountCommands(unsigned serial, char first, int second = -1) {
    int found = 0;
    for (const Payload& p : Commands(serial)) {
        found += p[0] == first && (second < 0 || (p.size() >= 2 && p[1] == second));
    }
    return found;
}

// Strongest bin of `max`, a trace from `start` in steps of `bin` Hz, within
// `reach` Hz of `frequency`; -1 if none lies there.
template <typename Level>
int PeakNear(const std::vector<Level>& max, double start, double bin, double frequency, double reach) {
    const int length = static_cast<int>(max.size());
    const int lo = std::max(0, static_cast<int>(std::ceil((frequency - reach - start) / bin)));
    const int hi = std::min(length - 1, static_cast<int>(std::floor((frequency + reach - start) / bin)));
    int best = -1;
    for (int i = lo; i <= hi; ++i) {
        if (best < 0 || max[i] > max[best]) best = i;
    }
    return best;
}

inline std::string Eight(unsigned serial) {
    char text[16];
    std::snprintf(text, sizeof text, "%08u", serial);
    return text;
}

// A folder of this test process, removed with the object.
class TempFolder {
public:
    explicit TempFolder(const char* tag = "e2e") {
        std::string pattern = (std::filesystem::temp_directory_path() / "qor_").string() + tag + "_XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    // Points the library's calibration cache here; no download leaves the machine.
    void UseAsCalibrationCache() const {
        qorSetCalFilePath((path_.string() + "/").c_str());
        setenv("QOR_CAL_URL", "http://127.0.0.1:9", 1);  // nothing listens on the discard port
    }
    // Puts the unit's table file into this folder as if downloaded before; false if the instrument wrote none.
    bool CopyTableFile(unsigned serial) const {
        const std::filesystem::path www = path_ / "www";
        if (TheSim()->writeCalibrationFiles(serial, www.c_str()) != 0) return false;
        const std::string name = "D" + Eight(serial) + ".bin";
        for (const auto& entry : std::filesystem::recursive_directory_iterator(www)) {
            if (entry.path().filename() != name) continue;
            std::filesystem::copy_file(entry.path(), path_ / name, std::filesystem::copy_options::overwrite_existing);
            return true;
        }
        return false;
    }

private:
    std::filesystem::path path_;
};

}  // namespace e2e

#endif
