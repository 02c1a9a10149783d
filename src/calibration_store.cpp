#include "calibration_store.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "analyzer_link.h"
#include "corrections_orsk.h"
#include "corrections_velm.h"
#include "folders.h"
#include "qor_api.h"
#include "qor_lib.h"

namespace qor {
namespace {

constexpr int kPageGroup = 4;
constexpr uint32_t kRepairPauseMs = 10;

constexpr uint32_t kBulkDropped = 4;  // leading bytes of the bulk answer
constexpr uint32_t kVelmBulkTable = 0x70000;
constexpr uint32_t kOrskBulkTable = 0x8D000;
constexpr uint32_t kVelmBulkBytes = 0x72000 + 4;
constexpr uint32_t kOrskBulkBytes = 0x8D000 + 4;
constexpr uint32_t kBulkPiece = 4096;

std::string CacheFileName(const std::string& folder, const char* pattern, int32_t serial) {
    char name[32];
    std::snprintf(name, sizeof name, pattern, serial);
    return folder + name;
}

// Fills the blocks that the cache didn't give whole from the unit or the
// endpoint. A slot's blocks still hold the unit opened in it before: what
// this unit has no data for is cleared, so that its cache files don't carry
// another unit's calibration.
qorStatus FillMissing(const CalIdentity& identity, bool haveUnit, bool haveTable, uint8_t* unit, uint8_t* table,
                      AnalyzerLink* link) {
    const DeviceFamily family(static_cast<int32_t>(identity.deviceType));
    if (identity.onDeviceCalibration) {
        // The 12.4 GHz family's bulk answer brings no unit block.
        if (family.IsOrsk() && !haveUnit) std::memset(unit, 0, CalibrationStore::kUnitBlockBytes);
        return link && ReadCalBulk(*link, unit, table, family.IsOrsk()) ? qorNoError : qorUsbCommErr;
    }
    if (!haveUnit && !(link && ReadCalPage(*link, unit))) return qorUsbCommErr;
    if (haveTable) return qorNoError;
    const uint32_t tableBytes = TableFileBytes(identity.deviceType);
    if (family.Is(DeviceTypeVelm)) {
        std::memset(table, 0, tableBytes);  // the first model keeps no table data at all
        return qorNoError;
    }
    uint32_t size = 0;
    return DownloadTableFile(identity.serialNumber, tableBytes, table, &size) ? qorNoError : qorInternetErr;
}

}  // namespace

CalibrationStore::CalibrationStore()
    : tableBlock(new uint8_t[kTableBlockBytes]()),
      // Zeroed too, so that the unit file of a unit that has no unit block is
      // not left to chance.
      unitBlock(new uint8_t[kUnitBlockBytes]()) {}

uint32_t TableFileBytes(uint32_t deviceType) {
    return DeviceFamily(static_cast<int32_t>(deviceType)).IsVelm() ? kVelmTableBytes : kOrskTableBytes;
}

qorStatus FetchCalibration(CalibrationStore& store, const CalIdentity& identity, AnalyzerLink* link) {
    const uint32_t type = identity.deviceType;
    const DeviceFamily family(static_cast<int32_t>(type));
    store.corr.reset();
    if (family.IsVelm())
        store.corr = std::make_unique<CorrectionsVelm>(family, store.tableBlock.get(), store.unitBlock.get());
    else
        store.corr = std::make_unique<CorrectionsOrsk>(family, store.tableBlock.get(), store.unitBlock.get());

    uint8_t* unit = store.unitBlock.get();
    uint8_t* table = store.tableBlock.get();
    const uint32_t tableBytes = TableFileBytes(type);
    const std::string folder = CalFolder();
    const std::string unitFile = CacheFileName(folder, "%08d.qmi", identity.serialNumber);
    const std::string tableFile = CacheFileName(folder, "D%08d.bin", identity.serialNumber);

    // A file of another length was cut short or isn't ours: it counts as missing.
    const bool haveUnit = folders::ReadExactFile(unitFile, unit, CalibrationStore::kUnitFileBytes);
    const bool haveTable = folders::ReadExactFile(tableFile, table, tableBytes);

    if (!haveUnit || !haveTable) {
        const qorStatus filled = FillMissing(identity, haveUnit, haveTable, unit, table, link);
        if (filled != qorNoError) return filled;
        // The cache is only a cache: a folder that refuses the files leaves
        // the calibration in the blocks usable.
        folders::WriteFileAtomic(unitFile, unit, CalibrationStore::kUnitFileBytes);
        folders::WriteFileAtomic(tableFile, table, tableBytes);
    }
    store.corr->Load(link);
    return qorNoError;
}

bool ReadCalPage(AnalyzerLink& link, uint8_t* unitBlock) {
    constexpr int kBytes = CalibrationStore::kUnitBlockBytes;
    // The two passes start from different fillings, so that a group that
    // neither received whole shows as a mismatch: groups that match came
    // whole at least once.
    std::vector<uint8_t> first(kBytes, 0x7F);
    for (int address = 0; address < kBytes; address += kPageGroup) link.ReadCalPage(address, &first[address]);
    std::memset(unitBlock, 0x80, kBytes);
    for (int address = 0; address < kBytes; address += kPageGroup) link.ReadCalPage(address, unitBlock + address);
    for (int address = 0; address < kBytes; address += kPageGroup) {
        if (std::memcmp(&first[address], unitBlock + address, kPageGroup) != 0 &&
            link.ReadCalPage(address, unitBlock + address, kRepairPauseMs) < static_cast<DWORD>(kPageGroup))
            return false;
    }
    return true;
}

bool ReadCalBulk(AnalyzerLink& link, uint8_t* unitBlock, uint8_t* tableBlock, bool isOrsk) {
    std::vector<uint8_t> received(CalibrationStore::kTableBlockBytes);
    const uint32_t expected = isOrsk ? kOrskBulkBytes : kVelmBulkBytes;
    link.ReadCalBulk(isOrsk);
    uint32_t count = 0;
    while (count < expected) {
        const uint32_t n = link.ReadStreamBytes(received.data() + count, std::min(kBulkPiece, expected - count));
        if (n == 0) break;
        count += n;
    }
    if (count < expected) return false;
    const uint8_t* payload = received.data() + kBulkDropped;
    if (isOrsk) {
        std::memcpy(tableBlock, payload, kOrskBulkTable);
    } else {
        std::memcpy(unitBlock, payload, CalibrationStore::kUnitBlockBytes);
        std::memcpy(tableBlock, payload + CalibrationStore::kUnitBlockBytes, kVelmBulkTable);
    }
    return true;
}

}  // namespace qor
