// The calibration download, whatever the endpoint serves: a body of any
// length and content fills the table block only up to its end, and counts as
// the unit's table only when it is at least the family's length.
//
// Input: two bytes of length in KiB (up to 1 MiB), then the body's pattern,
// repeated to that length; it is served from a file:// endpoint.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "calibration_store.h"
#include "qor_lib.h"

namespace {

constexpr int32_t kSerial = 13000003;
constexpr uint32_t kTableBytes = 571616;  // the 12.4 GHz family's table file

std::string Root() {
    static const std::string root = "/tmp/qor_fuzz_download_" + std::to_string(getpid());
    return root;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string folder = Root() + "/custdata/P1300";
    std::system(("mkdir -p " + folder).c_str());
    setenv("QOR_CAL_URL", ("file://" + Root()).c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const size_t length = static_cast<size_t>(data[0] | (data[1] & 0x03) << 8) * 1024 + data[2];
    std::vector<uint8_t> body(length);
    for (size_t i = 0; i < length; ++i) body[i] = size > 3 ? data[3 + i % (size - 3)] : 0;
    const std::string file = Root() + "/custdata/P1300/D13000003.bin";
    if (FILE* f = std::fopen(file.c_str(), "wb")) {
        std::fwrite(body.data(), 1, body.size(), f);
        std::fclose(f);
    }
    std::vector<uint8_t> table(qor::CalibrationStore::kTableBlockBytes);
    uint32_t received = 0;
    const bool whole = qor::DownloadTableFile(kSerial, kTableBytes, table.data(), &received);
    if (received > table.size()) __builtin_trap();
    if (whole != (length >= kTableBytes)) __builtin_trap();
    return 0;
}
