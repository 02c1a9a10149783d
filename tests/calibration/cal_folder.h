// A fresh calibration folder per test, set as the process's calibration
// path, and the default folder's data home pointed into a temporary folder
// for the whole test program.
#ifndef QOR_TESTS_CAL_FOLDER_H
#define QOR_TESTS_CAL_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace caltest {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }
    // Names of the entries inside.
    std::set<std::string> Entries() const;

private:
    std::filesystem::path path_;
};

std::vector<uint8_t> ReadWhole(const std::filesystem::path& file);
void WriteWhole(const std::filesystem::path& file, const std::vector<uint8_t>& bytes);

}  // namespace caltest

#endif
