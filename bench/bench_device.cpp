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

}  // namespace

HostCpu::HostCpu() : process_(ProcessCpuSeconds()), instrument_(InstrumentCpuSeconds()) {}

double HostCpu::Seconds() const {
    return (ProcessCpuSeconds() - process_) - (InstrumentCpuSeconds() - instrument_);
}

void CloseBenchDevices() {
    for (int device = 0; device < 8; ++device) qorCloseDevice(device);
}

}  // namespace qorbench
