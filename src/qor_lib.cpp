#include "qor_lib.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "folders.h"

namespace qor {
namespace {

constexpr const char* kDefaultDownloadBase = "http://www.tarvenworks.com";
constexpr const char* kAgent = "MyAgent";
constexpr http::Timeouts kDownloadTimeouts{5000, 10000};
constexpr uint32_t kReadPiece = 1024;

// The path of qorSetCalFilePath. Opens only read it, but they may run on
// several threads at once.
std::mutex calPathLock;
std::string calPath;

// "<data home>/TarvenWorks/", worked out and made once per process.
const std::string& VendorFolder() {
    static const std::string folder = [] {
        const std::string home = folders::DataHome();
        const std::string vendor = (home.empty() ? std::string() : home + "/") + "TarvenWorks/";
        folders::MakeFolders(vendor);
        return vendor;
    }();
    return folder;
}

}  // namespace

void SetCalFilePath(const char* path) {
    std::lock_guard<std::mutex> lock(calPathLock);
    calPath = path ? path : "";
}

std::string CalFolder() {
    {
        std::lock_guard<std::mutex> lock(calPathLock);
        if (!calPath.empty()) return calPath;
    }
    const std::string folder = VendorFolder() + "cal_files/";
    folders::MakeFolders(folder);
    return folder;
}

std::string CalDownloadBase() {
    const char* env = std::getenv("QOR_CAL_URL");
    std::string base = env && *env ? env : kDefaultDownloadBase;
    while (!base.empty() && base.back() == '/') base.pop_back();
    return base;
}

std::string TableFileUrl(int32_t serial) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%08d", serial);
    const std::string eight = digits;
    return CalDownloadBase() + "/custdata/P" + eight.substr(0, 4) + "/D" + eight + ".bin";
}

bool DownloadTableFile(int32_t serial, uint32_t tableBytes, uint8_t* destination, uint32_t* sizeOut) {
    return DownloadInto(TableFileUrl(serial), kDownloadTimeouts, tableBytes, destination, sizeOut);
}

bool DownloadInto(const std::string& url, http::Timeouts timeouts, uint32_t least, uint8_t* destination,
                  uint32_t* sizeOut) {
    *sizeOut = 0;
    http::Get get;
    if (!get.Open(url, kAgent, timeouts)) return false;
    uint32_t size = 0;
    for (;;) {
        const auto count = static_cast<uint32_t>(get.Read(destination + size, kReadPiece));
        size += count;
        if (count != kReadPiece || size >= kDownloadCapacity) break;
    }
    *sizeOut = size;
    return size >= least && !get.Failed();
}

}  // namespace qor
