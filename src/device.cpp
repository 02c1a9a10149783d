#include "device.h"

#include <array>
#include <cstring>
#include <mutex>

#include "engine_broadband.h"
#include "engine_fast.h"
#include "engine_audio.h"
#include "engine_iq.h"
#include "engine_realtime_image.h"
#include "engine_midrange.h"
#include "diagnostics.h"
#include "engine_rule.h"
#include "engine_slow.h"
#include "engine_tg.h"
#include "os.h"

namespace qor {
namespace {

std::mutex claimLock;

// Built at library load, freed at unload.
std::array<Device, Device::kCount> deviceTable;
std::array<Settings, Device::kCount> settingsTable;

// The unit re-enumerates on the bus in this time after a port cycle.
constexpr uint32_t kReenumerateMs = 2500;
// An oven still warming up reads at or above this; its current, when running, at or above the other.
constexpr int kOvenWarmingRaw = 194;
constexpr float kOvenCurrentLow = 30.0f;

// A preset returns at once rather than sitting through the re-enumeration
// of the unit it cycled: the next look at the bus waits out what is left.
std::mutex settleLock;
bool busSettling = false;
uint32_t busSettlesAt = 0;

void NoteReenumeration() {
    std::lock_guard<std::mutex> lock(settleLock);
    busSettling = true;
    busSettlesAt = os::TickMs() + kReenumerateMs;
}

void AwaitReenumeration() {
    int32_t left = 0;
    {
        std::lock_guard<std::mutex> lock(settleLock);
        if (!busSettling) return;
        left = static_cast<int32_t>(busSettlesAt - os::TickMs());
        if (left <= 0) busSettling = false;
    }
    if (left > 0) os::SleepMs(static_cast<uint32_t>(left));
}

// Port cycle, both channels closed: the unit starts afresh on the bus, and
// is off it for a while.
void CycleAndClose(AnalyzerLink& link) {
    link.CyclePort();
    link.Close();
    NoteReenumeration();
}

// The open sequence waits for the unit it cycled to come back.
void CycleCloseAndWait(AnalyzerLink& link) {
    CycleAndClose(link);
    AwaitReenumeration();
}

// After a port cycle the unit is listed anew, under indices of its own and
// perhaps only after a while: it is looked for as the stream channel's open
// would be retried.
AnalyzerLink::OpenResult ReopenAfterCycle(AnalyzerLink& link, int serialNumber) {
    constexpr int kTries = 10;
    constexpr uint32_t kRetryMs = 250;
    for (int attempt = 0;; ++attempt) {
        const AnalyzerLink::OpenResult opened = link.OpenUnit(serialNumber);
        if (opened != AnalyzerLink::OpenResult::NotListed || attempt + 1 == kTries) return opened;
        os::SleepMs(kRetryMs);
    }
}

// The timebase correction stored in the unit's user area; 0.0 for none or
// when the area could not be read whole. A value the library would refuse
// is ignored by the caller.
double StoredTimebase(AnalyzerLink& link) {
    uint8_t area[16] = {};
    if (link.ReadUserArea(area) != sizeof area) return 0.0;
    double stored = 0.0;
    std::memcpy(&stored, area + 8, sizeof stored);  // little-endian IEEE 754, as the host
    return stored;
}

// The device type of a firmware string: its 9th character names the
// family's model, the 11th tells the 12.4 GHz family's A and B units apart.
int32_t TypeOfFirmware(const char firmware[16]) {
    switch (firmware[8]) {
        case '1':
            return DeviceTypeVelm;
        case '2':
            return DeviceTypeVelmB;
        case '3':
            return firmware[10] == '0' ? DeviceTypeOrskA : DeviceTypeOrskB;
        default:
            return DeviceTypeNone;
    }
}

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

qorStatus Device::ListSerials(int serials[8], int* count) {
    AwaitReenumeration();
    AnalyzerLink lister;
    int stream[kCount], command[kCount];
    std::lock_guard<std::mutex> lock(AnalyzerLink::DeviceListMutex());
    *count = lister.ListUnits(serials, stream, command);
    return qorNoError;
}

qorStatus Device::Open(int serialNumber) {
    std::lock_guard<std::mutex> control(m_controlLock);
    AwaitReenumeration();
    try {
        const qorStatus status = OpenSequence(serialNumber);
        if (status != qorNoError) m_link.Close();
        return status;
    } catch (...) {
        m_link.Close();
        throw;
    }
}

qorStatus Device::OpenSequence(int serialNumber) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        // The first open resets the unit; the port cycle makes it start afresh.
        if (m_link.OpenUnit(serialNumber) == AnalyzerLink::OpenResult::NotListed) return qorDeviceNotFoundErr;
        CycleCloseAndWait(m_link);
        if (ReopenAfterCycle(m_link, serialNumber) != AnalyzerLink::OpenResult::Opened) return qorDeviceNotFoundErr;

        m_link.ReadSerialString(m_serialString);
        m_serialNumber = DecimalSerial(m_serialString);
        m_link.ReadFirmwareString(m_firmware);
        m_onDeviceCalibration = m_firmware[10] == '1';

        const int32_t type = TypeOfFirmware(m_firmware);
        if (type == DeviceTypeNone) {
            // A unit that answered nothing sensible gets one more port cycle.
            if (attempt == 0) {
                CycleCloseAndWait(m_link);
                continue;
            }
            m_link.Close();
            return qorDeviceNotFoundErr;
        }
        const bool readsVoltage = type == DeviceTypeOrskB || (type == DeviceTypeVelmB && m_onDeviceCalibration);
        m_link.Identify(DeviceFamily(type), readsVoltage);
        if (m_link.Family().IsOrsk()) {
            const qorStatus oven = CheckOven();
            if (oven != qorNoError) return oven;
        }
        break;
    }

    m_settings = Settings();

    // Calibration, with the link up and the type known: 0, -11 or -12.
    const qorStatus calibration = FetchCalibration(
        m_calibration, {m_serialNumber, static_cast<uint32_t>(DeviceType()), m_onDeviceCalibration}, &m_link);
    // The stored timebase correction is read whatever the fetch gave; the
    // correction object takes a value other than 0.0 as its timebaseFactor.
    const double storedTimebase = StoredTimebase(m_link);
    if (IsTimebaseCorrection(storedTimebase) && m_calibration.corr) {
        m_calibration.corr->timebaseFactor = storedTimebase;
    }

    if (calibration < 0) return calibration;
    m_open = true;
    return qorNoError;
}

// The 12.4 GHz family's oven oscillator: a B unit's oven must be warm, and
// both must draw their current. Leaves the link closed on failure.
qorStatus Device::CheckOven() {
    if (m_link.Family().Is(DeviceTypeOrskB)) {
        os::SleepMs(3000);
        int raw = 0;
        m_link.ReadOcxoWarmup(&raw);
        if (raw >= kOvenWarmingRaw) {
            CycleCloseAndWait(m_link);
            return qorOcxoWarmupErr;
        }
    }
    m_link.ReadOcxoStatus();
    if (m_link.ReadOcxoCurrent() < kOvenCurrentLow) {
        os::SleepMs(1000);
        m_link.ReadOcxoStatus();
        if (m_link.ReadOcxoCurrent() < kOvenCurrentLow) {
            // A unit unplugged under the readings reads no current either:
            // it is told as the USB failure it is, not as a dead oven.
            const bool unplugged = m_link.CommandChannelFailed();
            m_link.Close();
            return unplugged ? qorUsbCommErr : qorOcxoCurrentErr;
        }
    }
    return qorNoError;
}

void Device::Close() {
    std::lock_guard<std::mutex> control(m_controlLock);
    m_open = false;
    LeaveMode();
    m_link.Close();
    Release();
}

void Device::Preset() {
    std::lock_guard<std::mutex> control(m_controlLock);
    m_open = false;
    LeaveMode();
    CycleAndClose(m_link);
    Release();
}

qorStatus Device::ReadTemperature(float* temperature) {
    m_temperature = m_link.ReadTemperature();
    *temperature = m_temperature;
    return qorNoError;
}

qorStatus Device::ReadVoltage(float* voltage) {
    *voltage = m_link.ReadVoltage();
    return qorNoError;
}

Device::Running Device::Current() {
    std::lock_guard<std::mutex> lock(m_engineLock);
    return {m_mode, m_engine};
}

void Device::Install(int32_t mode, std::shared_ptr<SweepEngine> engine) {
    std::lock_guard<std::mutex> lock(m_engineLock);
    m_engine = std::move(engine);
    m_mode = mode;
}

void Device::Abort() {
    std::lock_guard<std::mutex> control(m_controlLock);
    LeaveMode();
}

void Device::LeaveMode() {
    std::shared_ptr<SweepEngine> engine;
    {
        std::lock_guard<std::mutex> lock(m_engineLock);
        m_mode = ModeIdle;
        engine.swap(m_engine);
    }
    // A caller still waiting in the engine wakes here and keeps it until it
    // has left; the engine touches neither the core nor the filter after Stop.
    if (engine) engine->Stop();
    engine.reset();
    // An overload seen by the mode that ends is no news to the next one.
    m_link.TakeCompressionMark();
    m_core.reset();
    m_rbwFilter.reset();
    // The IF output holds the unit tuned until the next abort.
    m_link.ReleaseIFOutput();
}

qorStatus Device::Initiate(int mode, const Settings& entry) {
    std::lock_guard<std::mutex> control(m_controlLock);
    LeaveMode();
    m_settings.CopyFrom(entry);
    try {
        return InitiateMode(mode);
    } catch (...) {
        LeaveMode();
        throw;
    }
}

qorStatus Device::InitiateMode(int mode) {
    switch (mode) {
        case ModeIdle:
            return qorNoError;
        case ModeSweep:
            return InitiateSweep();
        case ModeRealTime:
            return InitiateRealTime();
        case ModeIQ:
            return InitiateIQ();
        case ModeAudio:
            return InitiateAudio();
            return qorUnknownErr;  // no engine for this mode yet
        case ModeTGSweep:
            return InitiateTgSweep();
        default:
            return qorInvalidParameterErr;
    }
}

qorStatus Device::InitiateSweep() {
    const SweepEngineChoice choice = ChooseSweepEngine(m_settings, DeviceType());
    m_settings.rbw = choice.rbw;
    if (!m_calibration.corr) return qorUnknownErr;
    if (choice.kind == SweepEngineKind::Broadband) {
        // Detector sweeps: no filter and no spectrum core.
        Install(ModeSweep, std::make_shared<BroadbandSweepEngine>(&m_settings, nullptr, &m_link, &m_calibration,
                                                                  nullptr, &m_sweepInfo));
        return qorNoError;
    }
    qorStatus status = choice.rbwLimited ? qorBandwidthClamped : qorNoError;

    const bool fast = choice.kind == SweepEngineKind::Fast;
    m_rbwFilter = std::make_unique<RbwFilter>(m_settings.rbw, m_settings.rbwShape, kSampleRate,
                                              m_settings.procUnits, fast);
    bool ratioLimited = false;
    const int rbwToVbw =
        RbwToVbwRatio(choice.kind, m_settings.rbw, m_settings.vbw, m_rbwFilter->fftSize, &ratioLimited);
    if (ratioLimited) status = qorBandwidthClamped;
    const int samples = SweepSampleCount(m_rbwFilter->fftSize, rbwToVbw);
    const bool slow = choice.kind == SweepEngineKind::Slow;
    m_core = std::make_unique<SpectrumCore>(m_rbwFilter.get(), m_settings.detector, rbwToVbw, samples, !slow);

    Install(ModeSweep, BuildSweepEngine(choice.kind));
    return status;
}

std::shared_ptr<SweepEngine> Device::BuildSweepEngine(SweepEngineKind kind) {
    RbwFilter* filter = m_rbwFilter.get();
    SpectrumCore* core = m_core.get();
    switch (kind) {
        case SweepEngineKind::Slow:
            return std::make_shared<SlowSweepEngine>(&m_settings, filter, &m_link, &m_calibration, core, &m_sweepInfo);
        case SweepEngineKind::Fast:
            return std::make_shared<FastSweepEngine>(&m_settings, filter, &m_link, &m_calibration, core, &m_sweepInfo);
        default:
            return std::make_shared<MidrangeSweepEngine>(&m_settings, filter, &m_link, &m_calibration, core,
                                                         &m_sweepInfo);
    }
}

void Device::PrepareStream() {
    constexpr double kStreamIf = 1.07e7;
    m_sweepInfo.sweepLength = 512;
    m_sweepInfo.binSize = 390.625;
    m_link.TuneLO(m_settings.center + kStreamIf);
}

qorStatus Device::InitiateIQ() {
    if (!m_calibration.corr) return qorUnknownErr;
    PrepareStream();
    Install(ModeIQ, std::make_shared<IQEngine>(&m_settings, &m_link, &m_calibration, &m_sweepInfo));
    return qorNoError;
}

qorStatus Device::InitiateAudio() {
    if (!m_calibration.corr) return qorUnknownErr;
    PrepareStream();
    Install(ModeAudio, std::make_shared<AudioEngine>(&m_settings, &m_link, &m_calibration, &m_sweepInfo,
                                                     &m_audioLevels));
    return qorNoError;
}

qorStatus Device::InitiateRealTime() {
    const RealTimeChoice choice = ChooseRealTime(m_settings);
    m_settings.rbw = choice.rbw;
    if (choice.status < 0) return choice.status;
    if (!m_calibration.corr) return qorUnknownErr;
    constexpr double kStreamIf = 1.07e7;
    m_link.TuneLO(m_settings.center + kStreamIf);
    // Only the filter's FFT size serves this mode.
    m_rbwFilter = std::make_unique<RbwFilter>(m_settings.rbw, RbwShapeFlatTop, kSampleRate, 0, false);
    m_sweepInfo.sweepLength = m_rbwFilter->fftSize;
    Install(ModeRealTime, std::make_shared<RealTimeImageEngine>(&m_settings, m_rbwFilter.get(), &m_link,
                                                                &m_calibration, &m_sweepInfo));
    return choice.status;
}

qorStatus Device::InitiateTgSweep() {
    if (!m_calibration.corr) return qorUnknownErr;
    // Wide sweeps read one block per point through a wide filter; narrow
    // ones take a long capture per point through a narrow one.
    const bool wide = m_settings.span > TGSweep::kNarrowSpan;
    m_rbwFilter = std::make_unique<RbwFilter>(wide ? 20000.0 : 100.0, 1, kSampleRate, m_settings.procUnits, false);
    const int samples = wide ? AnalyzerLink::kBlockSamples : SweepSampleCount(m_rbwFilter->fftSize, 1);
    m_core = std::make_unique<SpectrumCore>(m_rbwFilter.get(), DetectorAverage, wide ? 2.0 : 1.0, samples, wide);
    Install(ModeTGSweep, std::make_shared<TGSweep>(&m_settings, m_rbwFilter.get(), &m_link, &m_calibration,
                                                  m_core.get(), &m_sweepInfo));
    return qorNoError;
}

}  // namespace qor
