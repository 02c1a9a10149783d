#include "cal_folder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace caltest {
namespace {

std::filesystem::path MakeTemporary() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qor-cal-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

// The default calibration folder is worked out once per process: point the
// data home at a folder of our own before the first test runs.
class DataHomeEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        home_ = MakeTemporary();
        setenv("XDG_DATA_HOME", home_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(home_); }

private:
    std::filesystem::path home_;
};

[[maybe_unused]] ::testing::Environment* const dataHome =
    ::testing::AddGlobalTestEnvironment(new DataHomeEnvironment);

}  // namespace

TempFolder::TempFolder() : path_(MakeTemporary()) {}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::set<std::string> TempFolder::Entries() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) names.insert(entry.path().filename());
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

}  // namespace caltest
