// What kind of analyzer a unit is: the device type that the open sequence
// reads from its firmware, and what follows from it. The unit's link holds
// it (AnalyzerLink::Family); everything that differs by type asks it there.
#ifndef QOR_DEVICE_FAMILY_H
#define QOR_DEVICE_FAMILY_H

#include <cstdint>

#include "qor_api.h"

namespace qor {

class DeviceFamily {
public:
    constexpr DeviceFamily() = default;
    constexpr explicit DeviceFamily(int32_t type) : type_(type) {}

    constexpr int32_t Type() const { return type_; }
    constexpr bool Is(int32_t type) const { return type_ == type; }
    // The 12.4 GHz family (types 3 and 4): a first mixer ahead of the IF chain.
    constexpr bool IsOrsk() const { return type_ == DeviceTypeOrskA || type_ == DeviceTypeOrskB; }
    // The 4.4 GHz family (types 1 and 2).
    constexpr bool IsVelm() const { return type_ == DeviceTypeVelm || type_ == DeviceTypeVelmB; }
    // dB of one step of the input attenuator.
    constexpr double AttenStepDb() const { return IsOrsk() ? 10.0 : 5.0; }

private:
    int32_t type_ = DeviceTypeNone;
};

}  // namespace qor

#endif
