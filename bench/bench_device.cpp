#include "bench_device.h"

#include <time.h>

#include <filesystem>

#include "qor_api.h"
#include "sim_control.h"

namespace qorbench {

int BenchDevice(unsigned serial) {
    for (int device = 0; device < 8; ++device) {
        int found = 0;
        if (qorGetSerialNumber(device, &found) == qorNoError && found == static_cast<int>(serial)) return device;
    }
    const auto folder = std::filesystem::temp_directory_path() / "qor_bench_calibration";
    std::filesystem::create_directories(folder);
    qorSetCalFilePath((folder.string() + "/").c_str());
    int device = -1;
    return qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)) == qorNoError ? device : -1;
}

namespace {

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double InstrumentCpuSeconds() { return Sim() ? Sim()->renderCpuSeconds() : 0.0; }

long long RenderedBlocks() { return Sim() ? Sim()->renderedBlocks() : 0; }

int CommandCount(unsigned serial) { return Sim() ? Sim()->commandCount(serial) : 0; }

}  // namespace

HostCpu::HostCpu(unsigned serial)
    : serial_(serial), process_(ProcessCpuSeconds()), instrument_(InstrumentCpuSeconds()),
      blocks_(RenderedBlocks()), commands_(CommandCount(serial)) {}

double HostCpu::Seconds() const {
    return (ProcessCpuSeconds() - process_) - (InstrumentCpuSeconds() - instrument_);
}

double HostCpu::InstrumentSeconds() const {
    constexpr double kBlockSeconds = 512 / 486111.1111111111;
    return static_cast<double>(RenderedBlocks() - blocks_) * kBlockSeconds;
}

double HostCpu::PauseSeconds() const {
    constexpr double kCommandPauseSeconds = 0.005;
    return (CommandCount(serial_) - commands_) * kCommandPauseSeconds;
}

void CloseBenchDevices() {
    for (int device = 0; device < 8; ++device) qorCloseDevice(device);
}

}  // namespace qorbench
