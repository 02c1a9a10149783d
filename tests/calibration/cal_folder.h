// Folders and files of the calibration tests. For the whole test program the
// default calibration folder's data home points into a temporary folder.
#ifndef QOR_TESTS_CAL_FOLDER_H
#define QOR_TESTS_CAL_FOLDER_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "e2e_bench.h"
#include "loopback_http_server.h"
#include "qor_lib.h"

namespace caltest {

using TempFolder = e2e::TempFolder;

// The default calibration folder is worked out once per process: point the
// data home at a folder of our own before the first test runs.
class DataHomeEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        home_ = std::make_unique<TempFolder>("cal_home");
        setenv("XDG_DATA_HOME", home_->Path().c_str(), 1);
    }
    void TearDown() override { home_.reset(); }

private:
    std::unique_ptr<TempFolder> home_;
};

inline ::testing::Environment* const dataHome = ::testing::AddGlobalTestEnvironment(new DataHomeEnvironment);

// Names of the entries inside `folder`.
inline std::set<std::string> Entries(const TempFolder& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) names.insert(entry.path().filename());
    return names;
}

inline std::vector<uint8_t> ReadWhole(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void WriteWhole(const std::filesystem::path& file, const std::vector<uint8_t>& bytes) {
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
}

// While it lives: a fresh folder as the process's calibration path and a
// loopback server as the download endpoint.
struct CalibrationPlace {
    CalibrationPlace() {
        setenv("QOR_CAL_URL", server.BaseUrl().c_str(), 1);
        qor::SetCalFilePath((folder.Path().string() + "/").c_str());
    }
    ~CalibrationPlace() {
        qor::SetCalFilePath(nullptr);
        unsetenv("QOR_CAL_URL");
    }
    CalibrationPlace(const CalibrationPlace&) = delete;
    CalibrationPlace& operator=(const CalibrationPlace&) = delete;
    std::filesystem::path File(const char* name) const { return folder.Path() / name; }

    TempFolder folder;
    LoopbackHttpServer server;
};

}  // namespace caltest

#endif
