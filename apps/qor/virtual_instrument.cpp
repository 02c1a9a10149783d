#include "virtual_instrument.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "qor_api.h"
#include "session.h"

namespace qortool {
namespace {

std::string ExecutableDir() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return ".";
    path[length] = '\0';
    std::string dir(path);
    return dir.substr(0, dir.find_last_of('/'));
}

// The instrument next to the tool: in the build tree, or where the install rules put it.
std::string FindSimLibrary() {
    if (const char* named = std::getenv("QOR_SIM_LIBRARY")) return named;
    const std::string dir = ExecutableDir();
    // QOR_INSTALLED_SIM: the install rules' path from the tool to the instrument.
    for (const char* relative : {"/../../sim/libqor_sim.so", "/" QOR_INSTALLED_SIM, "/libqor_sim.so"}) {
        const std::string candidate = dir + relative;
        if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
    return {};
}

// The units' factory calibration in a calibration folder of the tool's own.
void ServeCalibration(const std::string& library) {
    void* handle = dlopen(library.c_str(), RTLD_NOW);
    if (handle == nullptr) return;
    using WriteFiles = int (*)(unsigned, const char*);
    auto writeFiles = reinterpret_cast<WriteFiles>(dlsym(handle, "qorsim_write_calibration_files"));
    int serials[8];
    int count = 0;
    if (writeFiles != nullptr && qorGetSerialNumberList(serials, &count) == qorNoError) {
        // The instrument writes the files as the download endpoint serves
        // them; the table file of that layout is also the cache's table file.
        const std::string folder = "/tmp/qor-sim-calibration-" + std::to_string(getuid()) + "/";
        for (int i = 0; i < count; ++i) {
            char serial[16], prefix[8];
            std::snprintf(serial, sizeof serial, "%08d", serials[i]);
            std::snprintf(prefix, sizeof prefix, "%.4s", serial);
            if (writeFiles(static_cast<unsigned>(serials[i]), (folder + "endpoint").c_str()) != 0) continue;
            const std::string served = folder + "endpoint/custdata/P" + prefix + "/D" + serial + ".bin";
            std::rename(served.c_str(), (folder + "D" + serial + ".bin").c_str());
        }
        qorSetCalFilePath(folder.c_str());
    }
    dlclose(handle);
}

}  // namespace

void UseVirtualInstrument(const std::string& bench) {
    const std::string library = FindSimLibrary();
    if (library.empty()) {
        throw ToolError("the virtual instrument (libqor_sim.so) was not found next to the tool; set QOR_SIM_LIBRARY");
    }
    // The library reads both when it first reaches the bus, in the next call.
    setenv("QOR_D2XX_LIBRARY", library.c_str(), 1);
    if (!bench.empty()) setenv("QOR_SIM_BENCH", bench.c_str(), 1);
    ServeCalibration(library);
}

namespace {

// The instrument's control call `name`, from the instance the library has
// loaded already (none is loaded here); null when there is none.
template <typename Function>
Function InstrumentCall(const char* name) {
    const char* library = std::getenv("QOR_D2XX_LIBRARY");
    if (library == nullptr) return nullptr;
    void* handle = dlopen(library, RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return nullptr;
    auto call = reinterpret_cast<Function>(dlsym(handle, name));
    dlclose(handle);  // the library keeps it loaded
    return call;
}

nlohmann::json BenchInForce() {
    using BenchJson = const char* (*)();
    const auto benchJson = InstrumentCall<BenchJson>("qorsim_bench_json");
    if (benchJson == nullptr) return nlohmann::json();
    const nlohmann::json bench = nlohmann::json::parse(benchJson(), nullptr, false);
    return bench.is_object() ? bench : nlohmann::json();
}

}  // namespace

bool FindBenchGenerator(BenchGenerator* generator) {
    const nlohmann::json bench = BenchInForce();
    if (!bench.contains("generators") || bench["generators"].empty()) return false;
    const auto& g = bench["generators"][0];
    generator->serial = g.value("serial", 0u);
    generator->cabledTo = g.value("cabledTo", 0);
    generator->dut = g.contains("dut") ? g["dut"].dump() : R"({"kind": "thru"})";
    return true;
}

void SwapDut(unsigned generator, const std::string& dut) {
    using SetDut = int (*)(unsigned, const char*);
    using LastError = const char* (*)();
    const auto setDut = InstrumentCall<SetDut>("qorsim_set_dut");
    if (setDut == nullptr) throw ToolError("the virtual instrument cannot swap the device under test");
    if (setDut(generator, dut.c_str()) != 0) {
        const auto lastError = InstrumentCall<LastError>("qorsim_last_error");
        throw ToolError("device under test " + dut + ": " + (lastError ? lastError() : "refused"));
    }
}

std::vector<InjectedSignal> InjectedSignals(int serial) {
    std::vector<InjectedSignal> signals;
    const nlohmann::json bench = BenchInForce();
    if (bench.contains("units")) {
        for (const auto& unit : bench["units"]) {
            if (unit.value("serial", 0) != serial || !unit.contains("signals")) continue;
            for (const auto& s : unit["signals"]) {
                signals.push_back({s.value("kind", "cw"), s.value("frequency", 0.0), s.value("level", 0.0)});
            }
        }
    }
    std::sort(signals.begin(), signals.end(),
              [](const InjectedSignal& a, const InjectedSignal& b) { return a.level > b.level; });
    return signals;
}

}  // namespace qortool
