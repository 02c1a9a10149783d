// One analyzer as the library sees it: a slot of the process-wide device
// table. It owns its copy of the settings and the one running engine.
//
// States: free (m_claimed clear), opening (claimed, not open), idle (open,
// no engine, mode -1), measuring (an engine, mode 0..4). Calls on one device
// are not serialized; the claim lock only guards the search for a free slot.
#ifndef QOR_DEVICE_H
#define QOR_DEVICE_H

#include <memory>

#include "analyzer_link.h"
#include "calibration_store.h"
#include "rbw_filter.h"
#include "settings.h"
#include "spectrum_core.h"
#include "sweep_engine.h"

namespace qor {

class Device {
public:
    static constexpr int kCount = 8;

    // The slot behind a device index 0..7, and its settings table entry.
    static Device& At(int index);
    static Settings& Entry(int index);
    // Claims the lowest free slot under the claim lock; -1 when all are taken.
    static int Claim();
    // Serial numbers of the free analyzers on the bus, at most 8.
    static qorStatus ListSerials(int serials[8], int* count);

    Device();
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // The open sequence; runs with the slot claimed. Frees nothing on failure:
    // the caller releases the claim.
    qorStatus Open(int serialNumber);
    void Close();
    void Preset();
    void Abort();
    // Stops what runs, takes `entry` as the device's settings and starts `mode`.
    qorStatus Initiate(int mode, const Settings& entry);

    qorStatus ReadTemperature(float* temperature);
    qorStatus ReadVoltage(float* voltage);
    // Reads and clears the compression mark of the link.
    bool TakeCompressionMark();

    bool m_open = false;
    bool m_claimed = false;
    int32_t m_mode = ModeIdle;
    char m_serialString[16] = {};
    char m_firmware[16] = {};
    int32_t m_serialNumber = 0;
    bool m_onDeviceCalibration = false;
    int32_t m_deviceType = DeviceTypeNone;
    float m_temperature = 0.0f;
    AnalyzerLink m_link;
    Settings m_settings;
    SweepInfo m_sweepInfo;
    CalibrationStore m_calibration;
    // Built in the order filter, core, engine and freed in reverse (Abort);
    // declared ahead of the engine so that even plain destruction keeps it.
    std::unique_ptr<RbwFilter> m_rbwFilter;
    std::unique_ptr<SpectrumCore> m_core;
    std::unique_ptr<SweepEngine> m_engine;

private:
    qorStatus CheckOven();
    qorStatus InitiateSweep();
    qorStatus InitiateRealTime();
};

}  // namespace qor

#endif
