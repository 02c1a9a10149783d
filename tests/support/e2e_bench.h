// What the end-to-end tests share on the virtual instrument: the bench they
// load, the calibration folder of the run, the commands a unit saw, sweeps
// measured through the C API and the tones found in them.
#ifndef QOR_TESTS_SUPPORT_E2E_BENCH_H
#define QOR_TESTS_SUPPORT_E2E_BENCH_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include "qor_api.h"
#include "qorsim_calls.h"
#include "sim_bench.h"

namespace e2e {

// The sanitizer builds: their runtime holds the address space, and their
// engines cannot keep a unit's real rate.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool kThreadSanitizer = true;
#else
inline constexpr bool kThreadSanitizer = false;
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAnySanitizer = true;
#else
inline constexpr bool kAnySanitizer = false;
#endif

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
    std::vector<Tone> tones;
    double noiseFloor = -160.0;  // dBm/Hz; NaN: the bench's own
    bool onDeviceCalibration = true;
    double temperature = NAN;  // NaN: the bench's own
    std::vector<simbench::Signal> signals = {};  // beyond the CW tones: bursts, hops, modulated carriers
};

// A fast-clock, immediate-pacing bench of `units`, each with a scene of CW tones.
inline simbench::Bench BenchOf(const std::vector<BenchUnit>& units) {
    simbench::Bench bench;
    for (const BenchUnit& unit : units) {
        simbench::Unit& u = bench.units.emplace_back(unit.serial, unit.type);
        u.OnDeviceCalibration(unit.onDeviceCalibration);
        if (!std::isnan(unit.temperature)) u.Temperature(unit.temperature);
        if (!std::isnan(unit.noiseFloor)) u.NoiseFloor(unit.noiseFloor);
        for (const Tone& tone : unit.tones) u.Add(simbench::Cw(tone.frequency, tone.level));
        for (const simbench::Signal& signal : unit.signals) u.Add(signal);
    }
    return bench;
}

// The command payloads logged for `serial` since the log was cleared, in order.
inline std::vector<Payload> Commands(unsigned serial) {
    std::vector<Payload> found;
    unsigned char payload[8];
    for (int i = 0; i < TheSim()->commandCount(serial); ++i) {
        const int length = TheSim()->commandLog(serial, i, payload, sizeof payload);
        if (length >= 1) found.emplace_back(payload, payload + std::min<int>(length, sizeof payload));
    }
    return found;
}

// How many logged commands of `serial` begin with `first` (and `second`).
inline int CountCommands(unsigned serial, char first, int second = -1) {
    const std::vector<Payload> log = Commands(serial);
    return static_cast<int>(std::count_if(log.begin(), log.end(), [&](const Payload& p) {
        return p[0] == first && (second < 0 || (p.size() >= 2 && p[1] == second));
    }));
}

// Strongest bin of `max`, a trace from `start` in steps of `bin` Hz, within
// `reach` Hz of `frequency`; -1 if none lies there.
template <typename Level>
int PeakNear(const std::vector<Level>& max, double start, double bin, double frequency, double reach) {
    const int lo = std::max(0, static_cast<int>(std::ceil((frequency - reach - start) / bin)));
    const int hi = std::min(static_cast<int>(max.size()) - 1,
                            static_cast<int>(std::floor((frequency + reach - start) / bin)));
    if (lo > hi) return -1;
    return static_cast<int>(std::max_element(max.begin() + lo, max.begin() + hi + 1) - max.begin());
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
        for (const auto& entry : std::filesystem::recursive_directory_iterator(www)) {
            if (entry.path().filename() != "D" + Eight(serial) + ".bin") continue;
            std::filesystem::copy_file(entry.path(), path_ / entry.path().filename(),
                                       std::filesystem::copy_options::overwrite_existing);
            return true;
        }
        return false;
    }

private:
    std::filesystem::path path_;
};

// The calibration folder of this test process, removed when it ends.
inline const TempFolder& CalibrationFolder() {
    static const TempFolder folder("e2e");
    return folder;
}

// Loads the bench, puts the table files of the units without calibration on
// board into the calibration folder (as if downloaded before; a type 1 unit
// has none and gives its unit block page by page) and points the library at
// it. Empty, or why it failed.
inline std::string LoadBench(const simbench::Bench& bench) {
    const Sim* sim = TheSim();
    if (!sim) return "the D2XX library is no virtual instrument";
    if (sim->loadBenchJson(simbench::Json(bench).c_str()) != 0) return sim->lastError();
    if (CalibrationFolder().Path().empty()) return "no calibration folder";
    for (const simbench::Unit& unit : bench.units) {
        if (unit.onDeviceCalibration == false && unit.type >= 2 && !CalibrationFolder().CopyTableFile(unit.serial)) {
            return "no table file of " + std::to_string(unit.serial);
        }
    }
    CalibrationFolder().UseAsCalibrationCache();
    return "";
}
inline std::string LoadBench(const std::vector<BenchUnit>& units) { return LoadBench(BenchOf(units)); }

// Opens the unit; -1 on failure.
inline int Open(unsigned serial) {
    int device = -1;
    return qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)) == qorNoError ? device : -1;
}

// A bench of one type 2 unit with one signal whose clock runs in real time
// and whose stream is paced as the unit delivers it (read limits of a second,
// as with hardware); the unit opened on it, or -1.
inline int OpenRealTimeUnit(unsigned serial, const simbench::Signal& signal) {
    simbench::Bench bench;
    bench.clock = "real";
    bench.pacing = "realtime";
    bench.units.emplace_back(serial, 2).OnDeviceCalibration(true).NoiseFloor(-160.0).Add(signal);
    return LoadBench(bench).empty() ? Open(serial) : -1;
}

// A suite on one unit of OpenRealTimeUnit, opened once for the suite (its
// open pauses take seconds) by the suite's SetUpTestSuite and closed after it.
template <typename Suite>
class RealClockSuite : public ::testing::Test {
protected:
    static void TearDownTestSuite() {
        if (device_ >= 0) qorCloseDevice(device_);
        device_ = -1;
    }

    static inline int device_ = -1;
};

inline void CloseAll() {
    for (int device = 0; device < 8; ++device) qorCloseDevice(device);
}

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
    int shape = 1;  // flat top
    int detector = 0;
    int units = 0;
    int scale = 0;
};

inline Sweep Between(double start, double stop, double rbw, bool reject = false, int shape = 1) {
    Sweep s;
    s.center = (start + stop) / 2;
    s.span = stop - start;
    s.rbw = rbw;
    s.reject = reject;
    s.shape = shape;
    return s;
}

struct Trace {
    qorStatus initiate = qorUnknownErr;
    qorStatus get = qorUnknownErr;
    int length = 0;
    double startFreq = 0.0;
    double binSize = 0.0;
    std::vector<double> min, max;

    double FrequencyOf(int bin) const { return startFreq + bin * binSize; }
    int PeakBin() const { return static_cast<int>(std::max_element(max.begin(), max.end()) - max.begin()); }
    // Strongest bin of the max trace within `reach` Hz of `frequency`; -1 if none lies there.
    int PeakNear(double frequency, double reach) const {
        return e2e::PeakNear(max, startFreq, binSize, frequency, reach);
    }
    // Highest value of the max trace within `reach` Hz of `frequency`.
    double LevelNear(double frequency, double reach) const {
        const int peak = PeakNear(frequency, reach);
        return peak < 0 ? -300.0 : max[peak];
    }
    // The middle of the bins within 3 dB of `peak`: a flat-top RBW shows a
    // tone flat over several bins, so its highest bin says little.
    double CentreOf(int peak) const {
        int low = peak, high = peak;
        while (low > 0 && max[low - 1] > max[peak] - 3.0) --low;
        while (high < length - 1 && max[high + 1] > max[peak] - 3.0) ++high;
        return (FrequencyOf(low) + FrequencyOf(high)) / 2;
    }
    static double MeanDb(const std::vector<double>& trace) {
        return std::accumulate(trace.begin(), trace.end(), 0.0) / static_cast<double>(trace.size());
    }
};

// Configures the sweep and starts the sweep mode.
inline qorStatus Initiate(int device, const Sweep& s) {
    qorConfigCenterSpan(device, s.center, s.span);
    qorConfigSweepCoupling(device, s.rbw, s.vbw > 0.0 ? s.vbw : s.rbw, s.reject);
    qorConfigLevel(device, s.refLevel);
    if (s.atten >= 0 || s.gain >= 0 || s.preamp) qorConfigGainAtten(device, s.atten, s.gain, s.preamp);
    qorConfigRBWShape(device, s.shape);
    qorConfigProcUnits(device, s.units);
    qorConfigAcquisition(device, s.detector, s.scale);
    return qorInitiate(device, ModeSweep);
}

// Starts the sweep mode and sizes the traces to its grid.
inline Trace Start(int device, const Sweep& s) {
    Trace t;
    t.initiate = Initiate(device, s);
    if (t.initiate < 0) return t;
    qorQuerySweepInfo(device, &t.length, &t.startFreq, &t.binSize);
    t.min.assign(static_cast<std::size_t>(std::max(t.length, 0)), 0.0);
    t.max = t.min;
    return t;
}

// Takes the next sweep into the traces; its status.
inline qorStatus Take(int device, Trace& t) { return t.get = qorGetSweep_64f(device, t.min.data(), t.max.data()); }

// Starts the sweep mode, takes `sweeps` traces (the last one is kept) and stops.
inline Trace Measure(int device, const Sweep& s, int sweeps = 1) {
    Trace t = Start(device, s);
    for (int k = 0; k < sweeps && t.initiate >= 0; ++k) Take(device, t);
    qorAbort(device);
    return t;
}

// Every tone that lies in the trace: a peak within `reach` Hz, centred on the
// tone within one bin and within `tolerance` dB of its level.
inline void ExpectTones(const Trace& t, const std::vector<Tone>& tones, double tolerance, double reach) {
    int seen = 0;
    for (const Tone& tone : tones) {
        if (tone.frequency < t.FrequencyOf(0) || tone.frequency > t.FrequencyOf(t.length - 1)) continue;
        ++seen;
        const int peak = t.PeakNear(tone.frequency, reach);
        ASSERT_GE(peak, 0) << tone.frequency;
        EXPECT_NEAR(t.CentreOf(peak), tone.frequency, t.binSize) << "tone at " << tone.frequency;
        EXPECT_NEAR(t.max[peak], tone.level, tolerance) << "tone at " << tone.frequency;
    }
    EXPECT_GT(seen, 0) << "no tone in the trace";
}

// A suite that opens the units of `Scene` once (`devices_` maps serials to
// device indices); a test skips without the virtual instrument and fails
// when they did not open.
template <const std::vector<BenchUnit>& (*Scene)()>
class SceneSuite : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        failure_ = LoadBench(Scene());
        for (const BenchUnit& unit : Scene()) {
            if (!failure_.empty()) return;
            int device = -1;
            const qorStatus status = qorOpenDeviceBySerialNumber(&device, static_cast<int>(unit.serial));
            if (status == qorNoError) devices_[unit.serial] = device;
            else failure_ = "open " + std::to_string(unit.serial) + ": " + qorGetErrorString(status);
        }
    }
    static void TearDownTestSuite() {
        for (const auto& [serial, device] : devices_) qorCloseDevice(device);
        devices_.clear();
    }
    void SetUp() override {
        if (!TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        ASSERT_EQ(failure_, "");
    }

    static inline std::string failure_;
    static inline std::map<unsigned, int> devices_;
};

}  // namespace e2e

#endif
