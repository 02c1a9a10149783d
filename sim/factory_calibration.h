// The factory calibration of one unit, measured from its physical model and
// written in the unit's own byte layouts: the unit block and the table block
// that the "E" commands serve, and the files of the download endpoint.
#ifndef QOR_SIM_FACTORY_CALIBRATION_H
#define QOR_SIM_FACTORY_CALIBRATION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "unit_model.h"

namespace qorsim {

constexpr size_t kUnitBlockSize = 4096;
constexpr size_t kUnitFileSize = 3128;
constexpr size_t kVelmTableSize = 458624;
constexpr size_t kOrskTableSize = 571616;
constexpr size_t kVelmBulkPayload = 0x72000;
constexpr size_t kOrskBulkPayload = 0x8D000;

struct CalibrationImage {
    std::vector<uint8_t> unitBlock;  // kUnitBlockSize bytes
    std::vector<uint8_t> tableBlock; // kVelmTableSize or kOrskTableSize bytes
};

CalibrationImage BuildFactoryCalibration(const UnitModel& model);

// What the bulk read sends after its 4 leading bytes, for the layout that the
// command's last byte asks for (0x72: 4.4 GHz family, 0x8D: 12.4 GHz family).
std::vector<uint8_t> BulkPayload(const CalibrationImage& image, bool orskLayout);

}  // namespace qorsim

#endif
