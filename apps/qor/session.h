// Failures as one line naming the call, and a unit opened for one command.
#ifndef QOR_TOOL_SESSION_H
#define QOR_TOOL_SESSION_H

#include <stdexcept>
#include <string>

#include "qor_api.h"

namespace qortool {

class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws "call: <status text>" for an error status; warnings pass.
inline qorStatus Check(const char* call, qorStatus status) {
    if (status < 0) throw ToolError(std::string(call) + ": " + qorGetErrorString(status));
    return status;
}

// Opens the unit with `serial` (0: the first on the bus) and closes it at the end.
class OpenedUnit {
public:
    explicit OpenedUnit(int serial) {
        if (serial == 0) {
            Check("qorOpenDevice", qorOpenDevice(&device_));
        } else {
            Check("qorOpenDeviceBySerialNumber", qorOpenDeviceBySerialNumber(&device_, serial));
        }
    }
    ~OpenedUnit() { qorCloseDevice(device_); }
    OpenedUnit(const OpenedUnit&) = delete;
    OpenedUnit& operator=(const OpenedUnit&) = delete;
    int device() const { return device_; }

private:
    int device_ = -1;
};

}  // namespace qortool

#endif
