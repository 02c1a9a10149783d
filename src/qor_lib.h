// The calibration folder and the calibration download endpoint, shared by
// all devices of the process.
#ifndef QOR_QOR_LIB_H
#define QOR_QOR_LIB_H

#include <cstdint>
#include <string>

#include "http.h"

namespace qor {

// Largest body that a download takes.
constexpr uint32_t kDownloadCapacity = 768000;

// Stores the calibration folder of every later open; null or empty goes
// back to the default folder. The text is a plain prefix of the file names:
// nothing is appended and no folder is made.
void SetCalFilePath(const char* path);

// The folder of the cache files, ending in a separator: the stored path, or
// "TarvenWorks/cal_files/" under the user's data folder, made on demand.
std::string CalFolder();

// Base address of the download endpoint: QOR_CAL_URL (http://, https:// or
// file:// for a folder laid out as the endpoint), else the built-in one.
std::string CalDownloadBase();

// The endpoint's address of a unit's table file: "/custdata/P" + the first
// four of the eight digits + "/D" + all eight + ".bin".
std::string TableFileUrl(int32_t serial);

// Downloads a unit's table file into `destination` (kDownloadCapacity
// bytes). True when at least `tableBytes`, the whole table of the unit's
// family, came: anything shorter is an error page or a file cut off.
// *sizeOut is the count received.
bool DownloadTableFile(int32_t serial, uint32_t tableBytes, uint8_t* destination, uint32_t* sizeOut);

// The download loop on any address and time-outs: 1024 bytes a read until
// a short read or the capacity. True when at least `least` bytes came; a
// transfer that broke off fails, whatever it delivered. The HTTP status
// isn't looked at: an error page is told by its size.
bool DownloadInto(const std::string& url, http::Timeouts timeouts, uint32_t least, uint8_t* destination,
                  uint32_t* sizeOut);

}  // namespace qor

#endif
