// A device slot marked open without hardware, for tests of the call frame.
#ifndef QOR_TESTS_DEVICE_SLOT_H
#define QOR_TESTS_DEVICE_SLOT_H

#include "device.h"

class OpenSlot {
public:
    explicit OpenSlot(int index, int deviceType = DeviceTypeVelmB) : index_(index) {
        qor::Device& d = qor::Device::At(index);
        d.m_claimed = true;
        d.m_open = true;
        d.m_link.Identify(qor::DeviceFamily(deviceType), false);
        qor::Device::Entry(index).ResetForOpen(deviceType);
    }
    ~OpenSlot() {
        qor::Device& d = qor::Device::At(index_);
        d.Abort();
        d.m_open = false;
        d.m_claimed = false;
    }
    qor::Device& device() { return qor::Device::At(index_); }
    qor::Settings& entry() { return qor::Device::Entry(index_); }

private:
    int index_;
};

#endif
