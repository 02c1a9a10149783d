// One analyzer as the library sees it: a slot of the process-wide device
// table. It owns its copy of the settings and the one running engine.
//
// States: free (m_claimed clear), opening (claimed, not open), idle (open,
// no engine, mode -1), measuring (an engine, mode 0..4).
//
// Threads and locks. The claim lock (process-wide) guards only the search
// for a free slot. On one device, the calls that change its state (open,
// close, preset, abort, initiate, and the diagnostics that abort first)
// take m_controlLock, so that they follow one another whole; the retrieval
// calls never take it, so that they can be woken by one of those. The mode
// and the engine change together under m_engineLock, held only for that
// and for a retrieval's look at them (Running); it is taken inside
// m_controlLock, never the other way round, and never with an engine lock.
// A retrieval holds its own reference to the engine while it waits in it:
// when the mode is left under it, the engine is stopped (the caller wakes
// with -6) but freed only once the caller has let go.
#ifndef QOR_DEVICE_H
#define QOR_DEVICE_H

#include <atomic>
#include <memory>
#include <mutex>

#include "analyzer_link.h"
#include "audio_demodulators.h"
#include "calibration_store.h"
#include "engine_rule.h"
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

    // The open sequence; runs with the slot claimed. On failure the link is
    // closed and the caller releases the claim (Release).
    qorStatus Open(int serialNumber);
    void Release() { m_claimed = false; }
    void Close();
    void Preset();
    void Abort();
    // Stops what runs, takes `entry` as the device's settings and starts
    // `mode`. Leaves the device idle when the engine could not be built
    // (and passes on why: an allocation failure is thrown).
    qorStatus Initiate(int mode, const Settings& entry);

    // The mode and the engine as one look; the engine stays alive for as
    // long as the caller holds it.
    struct Running {
        int32_t mode;
        std::shared_ptr<SweepEngine> engine;
    };
    Running Current();
    // Puts `engine` in place as the running one in `mode` (the mode's own
    // engine, or a stand-in in tests).
    void Install(int32_t mode, std::shared_ptr<SweepEngine> engine);

    qorStatus ReadTemperature(float* temperature);
    qorStatus ReadVoltage(float* voltage);
    // Reads and clears the compression mark of the link.
    bool TakeCompressionMark() { return m_link.TakeCompressionMark(); }
    // The device type the open sequence found (DeviceTypeNone before).
    int32_t DeviceType() const { return m_link.Family().Type(); }

    std::atomic<bool> m_open{false};
    std::atomic<bool> m_claimed{false};
    std::atomic<int32_t> m_mode{ModeIdle};
    char m_serialString[16] = {};
    char m_firmware[16] = {};
    int32_t m_serialNumber = 0;
    bool m_onDeviceCalibration = false;
    float m_temperature = 0.0f;
    AnalyzerLink m_link;
    Settings m_settings;
    SweepInfo m_sweepInfo;
    CalibrationStore m_calibration;
    // Built in the order filter, core, engine; the engine is stopped before
    // the core and the filter are freed (Abort).
    std::unique_ptr<RbwFilter> m_rbwFilter;
    std::unique_ptr<SpectrumCore> m_core;
    // The automatic levels of the audio mode, carried from one engine to the next.
    AudioLevels m_audioLevels;

private:
    // Abort, with m_controlLock held.
    void LeaveMode();
    qorStatus OpenSequence(int serialNumber);
    qorStatus CheckOven();
    qorStatus InitiateMode(int mode);
    qorStatus InitiateSweep();
    // The streaming modes start with the LO on the high IF above the centre
    // and report a nominal sweep info.
    void PrepareStream();
    qorStatus InitiateIQ();
    qorStatus InitiateAudio();
    std::shared_ptr<SweepEngine> BuildSweepEngine(SweepEngineKind kind);
    qorStatus InitiateRealTime();
    qorStatus InitiateTgSweep();

    std::mutex m_controlLock;
    std::mutex m_engineLock;                // m_engine and its agreement with m_mode
    std::shared_ptr<SweepEngine> m_engine;  // null when idle
};

}  // namespace qor

#endif
