// The calibration of one unit: the two blocks as the unit, its cache files
// or the download endpoint give them, and the correction object built on
// them. Engines reach the corrections through `corr`.
//
// The cache files in the calibration folder, by the unit's decimal serial:
// "%08d.qmi" holds the first 3128 bytes of the unit block, "D%08d.bin" the
// first 458624 (4.4 GHz family) or 571616 (12.4 GHz family) bytes of the
// table block. A cache file is trusted only at its exact length: one of any
// other length (cut short by a crash or a full disk) counts as missing, and
// is fetched again and rewritten whole. Files are replaced atomically, and
// nothing is written from a read or a download that came short. Deleting a
// file sends the next open back to the unit or the network.
#ifndef QOR_CALIBRATION_STORE_H
#define QOR_CALIBRATION_STORE_H

#include <cstdint>
#include <memory>

#include "corrections.h"
#include "qor_api.h"

namespace qor {

class AnalyzerLink;

class CalibrationStore {
public:
    static constexpr uint32_t kTableBlockBytes = 768000;
    static constexpr uint32_t kUnitBlockBytes = 4096;
    static constexpr uint32_t kUnitFileBytes = 3128;

    CalibrationStore();

    std::unique_ptr<DeviceCorr> corr;  // empty until FetchCalibration ran
    std::unique_ptr<uint8_t[]> tableBlock;  // kTableBlockBytes
    std::unique_ptr<uint8_t[]> unitBlock;   // kUnitBlockBytes
};

// Who the unit is, as the open sequence found out.
struct CalIdentity {
    int32_t serialNumber;
    uint32_t deviceType;       // 1 to 4
    bool onDeviceCalibration;  // the unit serves its whole calibration in bulk
};

// Bytes of the table block that a unit of this type keeps in its cache file.
uint32_t TableFileBytes(uint32_t deviceType);

// Gathers the unit's calibration from the cache, else the unit, else the
// download endpoint; refreshes the cache files and loads the corrections.
// 0; qorUsbCommErr (-11) when a read from the unit came short, and
// qorInternetErr (-12) when the whole table file can't be downloaded: then
// nothing is written and the corrections aren't loaded. A null link stands
// for a unit that answers nothing.
qorStatus FetchCalibration(CalibrationStore& store, const CalIdentity& identity, AnalyzerLink* link);

// The unit block from the unit's calibration memory, 4 bytes a command, read
// twice; a group whose passes differ is read a third time and kept as it
// comes. About 2048 commands. False when a third read came back short: the
// block is then incomplete.
[[nodiscard]] bool ReadCalPage(AnalyzerLink& link, uint8_t* unitBlock);

// The calibration in one piece on the stream channel. 4.4 GHz family: the
// unit block and 0x70000 bytes of table block; 12.4 GHz family: 0x8D000
// bytes of table block. False when fewer bytes came than asked for.
[[nodiscard]] bool ReadCalBulk(AnalyzerLink& link, uint8_t* unitBlock, uint8_t* tableBlock, bool isOrsk);

}  // namespace qor

#endif
