#include "bench_device.h"

#include <filesystem>

#include "qor_api.h"

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

void CloseBenchDevices() {
    for (int device = 0; device < 8; ++device) qorCloseDevice(device);
}

}  // namespace qorbench
