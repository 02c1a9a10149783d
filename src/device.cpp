#include "device.h"

#include <array>
#include <mutex>

#include "engine_rule.h"

namespace qor {
namespace {

std::mutex claimLock;

// Built at library load, freed at unload.
std::array<Device, Device::kCount> deviceTable;
std::array<Settings, Device::kCount> settingsTable;

}  // namespace

Device& Device::At(int index) { return deviceTable[static_cast<std::size_t>(index)]; }

Settings& Device::Entry(int index) { return settingsTable[static_cast<std::size_t>(index)]; }

int Device::Claim() {
    std::lock_guard<std::mutex> lock(claimLock);
    for (int i = 0; i < kCount; ++i) {
        if (!deviceTable[static_cast<std::size_t>(i)].m_claimed) {
            deviceTable[static_cast<std::size_t>(i)].m_claimed = true;
            return i;
        }
    }
    return -1;
}

Device::Device() = default;

Device::~Device() {
    if (m_open) Close();
}

qorStatus Device::ListSerials(int /*serials*/[8], int* count) {
    *count = 0;
    return qorNoError;
}

qorStatus Device::Open(int /*serialNumber*/) { return qorDeviceNotFoundErr; }

void Device::Close() {
    Abort();
    m_open = false;
    m_claimed = false;
}

void Device::Preset() {
    Abort();
    m_open = false;
    m_claimed = false;
}

qorStatus Device::ReadTemperature(float* temperature) {
    *temperature = m_temperature;
    return qorNoError;
}

qorStatus Device::ReadVoltage(float* voltage) {
    *voltage = 5.0f;
    return qorNoError;
}

bool Device::TakeCompressionMark() { return false; }

void Device::Abort() {
    m_mode = ModeIdle;
    m_engine.reset();
}

qorStatus Device::Initiate(int mode, const Settings& entry) {
    Abort();
    m_settings.CopyFrom(entry);
    switch (mode) {
        case ModeIdle:
            return qorNoError;
        case ModeSweep:
            return InitiateSweep();
        case ModeRealTime:
            return InitiateRealTime();
        case ModeIQ:
        case ModeAudio:
        case ModeTGSweep:
            return qorUnknownErr;  // no engine for this mode yet
        default:
            return qorInvalidParameterErr;
    }
}

qorStatus Device::InitiateSweep() {
    const SweepEngineChoice choice = ChooseSweepEngine(m_settings, m_deviceType);
    m_settings.rbw = choice.rbw;
    return qorUnknownErr;  // no sweep engine yet
}

qorStatus Device::InitiateRealTime() {
    const RealTimeChoice choice = ChooseRealTime(m_settings);
    m_settings.rbw = choice.rbw;
    if (choice.status < 0) return choice.status;
    return qorUnknownErr;  // no real-time engine yet
}

}  // namespace qor
