#include "factory_calibration.h"

#include <algorithm>

namespace qorsim {

CalibrationImage BuildFactoryCalibration(const UnitModel& model) {
    CalibrationImage image;
    image.unitBlock.assign(kUnitBlockSize, 0);
    image.tableBlock.assign(model.UnitFamily() == Family::Orsk ? kOrskTableSize : kVelmTableSize, 0);
    return image;
}

std::vector<uint8_t> BulkPayload(const CalibrationImage& image, bool orskLayout) {
    std::vector<uint8_t> data;
    if (orskLayout) {
        data.assign(kOrskBulkPayload, 0);
        std::copy_n(image.tableBlock.begin(), std::min(image.tableBlock.size(), data.size()), data.begin());
    } else {
        // Unit block, then the table block in a field of 0x70000 bytes, then a trailer.
        data.assign(kVelmBulkPayload, 0);
        std::copy_n(image.unitBlock.begin(), std::min<size_t>(image.unitBlock.size(), kUnitBlockSize), data.begin());
        std::copy_n(image.tableBlock.begin(), std::min<size_t>(image.tableBlock.size(), 0x70000),
                    data.begin() + kUnitBlockSize);
    }
    return data;
}

}  // namespace qorsim
