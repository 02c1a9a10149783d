#include "cal_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>

#include "qor_lib.h"

namespace caltest {
namespace {

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

[[maybe_unused]] ::testing::Environment* const dataHome =
    ::testing::AddGlobalTestEnvironment(new DataHomeEnvironment);

}  // namespace

std::set<std::string> Entries(const TempFolder& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) names.insert(entry.path().filename());
    return names;
}

std::vector<uint8_t> ReadWhole(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteWhole(const std::filesystem::path& file, const std::vector<uint8_t>& bytes) {
    std::ofstream out(file, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

CalibrationPlace::CalibrationPlace() {
    setenv("QOR_CAL_URL", server.BaseUrl().c_str(), 1);
    qor::SetCalFilePath((folder.Path().string() + "/").c_str());
}

CalibrationPlace::~CalibrationPlace() {
    qor::SetCalFilePath(nullptr);
    unsetenv("QOR_CAL_URL");
}

}  // namespace caltest
