// Folders and files of the calibration tests. For the whole test program the
// default calibration folder's data home points into a temporary folder.
#ifndef QOR_TESTS_CAL_FOLDER_H
#define QOR_TESTS_CAL_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "e2e_bench.h"
#include "loopback_http_server.h"

namespace caltest {

using TempFolder = e2e::TempFolder;

// Names of the entries inside `folder`.
std::set<std::string> Entries(const TempFolder& folder);

std::vector<uint8_t> ReadWhole(const std::filesystem::path& file);
void WriteWhole(const std::filesystem::path& file, const std::vector<uint8_t>& bytes);

// While it lives: a fresh folder as the process's calibration path and a
// loopback server as the download endpoint.
class CalibrationPlace {
public:
    CalibrationPlace();
    ~CalibrationPlace();
    CalibrationPlace(const CalibrationPlace&) = delete;
    CalibrationPlace& operator=(const CalibrationPlace&) = delete;
    std::filesystem::path File(const char* name) const { return folder.Path() / name; }

    TempFolder folder;
    LoopbackHttpServer server;
};

}  // namespace caltest

#endif
