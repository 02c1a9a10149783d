// The exported functions: each checks its frame (device index, open, required
// pointers), then its own conditions and the mode, and hands the work to the
// Device or its engine. No exception crosses into the caller: an allocation
// failure (or a refusal of the thread library) anywhere below becomes -666,
// and the Device has put itself back in order before it is passed on.
#include "qor_api.h"

#include <cstring>
#include <type_traits>
#include <vector>

#include "device.h"
#include "diagnostics.h"
#include "ipps.h"
#include "qor_lib.h"
#include "status_text.h"
#include "trace_units.h"

using qor::Device;
using qor::SweepEngine;

namespace {

template <typename Body>
qorStatus Guarded(Body body) noexcept {
    try {
        return body();
    } catch (...) {
        return qorUnknownErr;
    }
}

// The frame of every call with a device: index 0..7, then open.
template <typename Body>
qorStatus WithDevice(int device, Body body) noexcept {
    return Guarded([&] {
        if (device < 0 || device >= Device::kCount) return qorInvalidDeviceErr;
        Device& d = Device::At(device);
        if (!d.m_open) return qorDeviceNotOpenErr;
        return body(d);
    });
}

template <typename... Pointers>
bool AnyNull(const Pointers*... pointers) {
    return ((pointers == nullptr) || ...);
}

// The tail of every retrieval: a compression mark set since the last one
// turns the result into the warning 2.
qorStatus Retrieved(Device& d, qorStatus status) { return d.TakeCompressionMark() ? qorCompression : status; }

// A trace in dBm as the mode's scale has it: millivolts when not logarithmic.
template <typename T>
void ToCallersScale(const SweepEngine& engine, T* min, T* max) {
    if (engine.LogScale()) return;
    qor::DbmToMillivolts(min, engine.TraceLength());
    qor::DbmToMillivolts(max, engine.TraceLength());
}

// Whole sweeps, for both widths: the engine's partial form is repeated until
// the trace is complete.
template <typename T>
qorStatus GetSweep(int device, T* min, T* max) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(min, max)) return qorNullPtrErr;
        const Device::Running run = d.Current();
        if (run.mode == ModeIdle) return qorNotConfiguredErr;
        if (run.mode != ModeSweep && run.mode != ModeRealTime && run.mode != ModeTGSweep) return qorWrongModeErr;
        if (!run.engine) return qorUnknownErr;
        // The real-time sweep comes only with its frame.
        if (run.mode == ModeRealTime) return qorWrongModeErr;
        SweepEngine& engine = *run.engine;
        qorStatus status;
        if constexpr (std::is_same_v<T, float>) {
            status = engine.CollectSweep32(min, max);
        } else {
            status = engine.CollectSweep64(min, max);
        }
        if (status < 0) return status;
        ToCallersScale(engine, min, max);
        return Retrieved(d, qorNoError);
    });
}

template <typename T>
qorStatus GetPartialSweep(int device, T* min, T* max, int* start, int* stop) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(min, max) || AnyNull(start, stop)) return qorNullPtrErr;
        const Device::Running run = d.Current();
        if (run.mode == ModeIdle) return qorNotConfiguredErr;
        if (!run.engine) return qorUnknownErr;
        SweepEngine& engine = *run.engine;
        qorStatus status;
        if constexpr (std::is_same_v<T, float>) {
            status = engine.GetPartialSweep32(min, max, start, stop);
        } else {
            status = engine.GetPartialSweep64(min, max, start, stop);
        }
        // A mode left under the caller has nothing of its scale to give.
        if (status != qorNotConfiguredErr) ToCallersScale(engine, min, max);
        return Retrieved(d, status);
    });
}

int IqReturnLength(const Device& d) { return 16384 >> d.m_settings.iqDecimationLog2; }

// The part every I/Q retrieval shares once its own arguments are checked.
qorStatus IqTail(Device& d, IQPacket& packet) {
    const Device::Running run = d.Current();
    if (run.mode == ModeIdle) return qorNotConfiguredErr;
    if (run.mode != ModeIQ) return qorWrongModeErr;
    if (!run.engine) return qorUnknownErr;
    return Retrieved(d, run.engine->GetIQ(packet));
}

qorStatus GetIqSamples(Device& d, float* iq, int count, int purge) {
    IQPacket packet{iq, count, purge, 0, 0, 0, 0};
    return IqTail(d, packet);
}

}  // namespace

// ---- Lifecycle -------------------------------------------------------------

qorStatus qorGetSerialNumberList(int serialNumbers[8], int* deviceCount) {
    return Guarded([&] {
        if (serialNumbers == nullptr || deviceCount == nullptr) return qorNullPtrErr;
        *deviceCount = 0;
        return Device::ListSerials(serialNumbers, deviceCount);
    });
}

qorStatus qorOpenDevice(int* device) {
    return Guarded([&] {
        int serials[8];
        int count = 0;
        Device::ListSerials(serials, &count);
        if (count < 1) return qorDeviceNotFoundErr;
        return qorOpenDeviceBySerialNumber(device, serials[0]);
    });
}

qorStatus qorOpenDeviceBySerialNumber(int* device, int serialNumber) {
    return Guarded([&] {
        if (device == nullptr) return qorNullPtrErr;
        const int slot = Device::Claim();
        if (slot < 0) return qorTooManyDevicesErr;
        Device& d = Device::At(slot);
        qorStatus status;
        try {
            status = d.Open(serialNumber);
        } catch (...) {
            d.Release();
            throw;
        }
        if (status != qorNoError) {
            d.Release();
            return status;
        }
        Device::Entry(slot).ResetForOpen(d.DeviceType());
        *device = slot;
        return qorNoError;
    });
}

qorStatus qorCloseDevice(int device) {
    return WithDevice(device, [](Device& d) {
        d.Close();
        return qorNoError;
    });
}

qorStatus qorPreset(int device) {
    return WithDevice(device, [](Device& d) {
        d.Preset();
        return qorNoError;
    });
}

qorStatus qorSetCalFilePath(const char* path) {
    return Guarded([&] {
        qor::SetCalFilePath(path);
        return qorNoError;
    });
}

// ---- Information -----------------------------------------------------------

qorStatus qorGetSerialNumber(int device, int* serialNumber) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(serialNumber)) return qorNullPtrErr;
        *serialNumber = d.m_serialNumber;
        return qorNoError;
    });
}

qorStatus qorGetFirmwareString(int device, char* firmware) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(firmware)) return qorNullPtrErr;
        const std::size_t length = strnlen(d.m_firmware, sizeof d.m_firmware - 1);
        std::memcpy(firmware, d.m_firmware, length);
        firmware[length] = '\0';
        return qorNoError;
    });
}

qorStatus qorGetDeviceType(int device, int* type) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(type)) return qorNullPtrErr;
        *type = d.DeviceType();
        return qorNoError;
    });
}

const char* qorGetAPIVersion(void) { return "3.1.0"; }

const char* qorGetProductID(void) { return "7715-2260"; }

const char* qorGetErrorString(qorStatus status) { return qor::StatusText(status); }

// ---- Configuration ---------------------------------------------------------
// Each writes the settings table entry of the index, nothing else.

qorStatus qorConfigAcquisition(int device, int detector, int scale) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigAcquisition(detector, scale); });
}

qorStatus qorConfigCenterSpan(int device, double center, double span) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigCenterSpan(center, span); });
}

qorStatus qorConfigLevel(int device, double refLevel) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigLevel(refLevel); });
}

qorStatus qorConfigGainAtten(int device, int atten, int gain, bool preamp) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigGainAtten(atten, gain, preamp); });
}

qorStatus qorConfigSweepCoupling(int device, double rbw, double vbw, bool reject) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigSweepCoupling(rbw, vbw, reject); });
}

qorStatus qorConfigRBWShape(int device, int rbwShape) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigRBWShape(rbwShape); });
}

qorStatus qorConfigProcUnits(int device, int procUnits) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigProcUnits(procUnits); });
}

qorStatus qorConfigIQ(int device, int decimation, double bandwidth) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigIQ(decimation, bandwidth); });
}

qorStatus qorConfigAudio(int device, int audioType, double centerFreq, double bandwidth, double audioLowPass,
                         double audioHighPass, double fmDeemphasis) {
    return WithDevice(device, [&](Device&) {
        return Device::Entry(device).ConfigAudio(audioType, centerFreq, bandwidth, audioLowPass, audioHighPass,
                                                 fmDeemphasis);
    });
}

qorStatus qorConfigRealTime(int device, double frameScale, int frameRate) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigRealTime(frameScale, frameRate); });
}

qorStatus qorConfigRealTimeOverlap(int device, double overlap) {
    return WithDevice(device, [&](Device&) { return Device::Entry(device).ConfigRealTimeOverlap(overlap); });
}

qorStatus qorConfigTgSweep(int device, int sweepSize, bool tgHighRange, bool tgPreamp) {
    return WithDevice(device,
                      [&](Device&) { return Device::Entry(device).ConfigTgSweep(sweepSize, tgHighRange, tgPreamp); });
}

// ---- Run control -----------------------------------------------------------

qorStatus qorInitiate(int device, int mode) {
    return WithDevice(device, [&](Device& d) {
        return d.Initiate(mode, Device::Entry(device));
    });
}

qorStatus qorAbort(int device) {
    return WithDevice(device, [](Device& d) {
        d.Abort();
        return qorNoError;
    });
}

// ---- Queries ---------------------------------------------------------------

qorStatus qorQuerySweepInfo(int device, int* sweepLength, double* startFreq, double* binSize) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(sweepLength) || AnyNull(startFreq, binSize)) return qorNullPtrErr;
        if (d.m_mode == ModeIdle || d.m_mode == ModeIQ) return qorNotConfiguredErr;
        *sweepLength = d.m_sweepInfo.sweepLength;
        *startFreq = d.m_sweepInfo.startFreq;
        *binSize = d.m_sweepInfo.binSize;
        return qorNoError;
    });
}

qorStatus qorQueryStreamInfo(int device, int* returnLen, double* bandwidth, double* samplesPerSecond) {
    return WithDevice(device, [&](Device& d) {
        if (d.m_mode != ModeIQ) return qorNotConfiguredErr;
        const int decimation = 1 << d.m_settings.iqDecimationLog2;
        if (returnLen) *returnLen = IqReturnLength(d);
        if (bandwidth) *bandwidth = d.m_settings.iqBandwidth;
        if (samplesPerSecond) *samplesPerSecond = 486111.1111111111 / decimation;
        return qorNoError;
    });
}

qorStatus qorQueryRealTimeFrameInfo(int device, int* frameWidth, int* frameHeight) {
    return WithDevice(device, [&](Device& d) {
        if (d.m_mode != ModeRealTime) return qorNotConfiguredErr;
        if (frameWidth) *frameWidth = d.m_sweepInfo.frameWidth;
        if (frameHeight) *frameHeight = d.m_sweepInfo.frameHeight;
        return qorNoError;
    });
}

qorStatus qorQueryRealTimePoi(int device, double* poi) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(poi)) return qorNullPtrErr;
        if (d.m_mode != ModeRealTime) return qorNotConfiguredErr;
        *poi = d.m_sweepInfo.poi;
        return qorNoError;
    });
}

qorStatus qorQueryTemperature(int device, float* temperature) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(temperature)) return qorNullPtrErr;
        if (d.m_mode == ModeIdle) return d.ReadTemperature(temperature);
        *temperature = d.m_temperature;
        return qorNoError;
    });
}

qorStatus qorQueryDiagnostics(int device, float* voltage) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(voltage)) return qorNullPtrErr;
        if (d.m_mode != ModeIdle) return qorDeviceActiveErr;
        return d.ReadVoltage(voltage);
    });
}

// ---- Get data --------------------------------------------------------------

qorStatus qorGetSweep_32f(int device, float* min, float* max) { return GetSweep(device, min, max); }

qorStatus qorGetSweep_64f(int device, double* min, double* max) { return GetSweep(device, min, max); }

qorStatus qorGetPartialSweep_32f(int device, float* min, float* max, int* start, int* stop) {
    return GetPartialSweep(device, min, max, start, stop);
}

qorStatus qorGetPartialSweep_64f(int device, double* min, double* max, int* start, int* stop) {
    return GetPartialSweep(device, min, max, start, stop);
}

qorStatus qorGetRealTimeFrame(int device, float* sweep, float* frame, float* alphaFrame) {
    return WithDevice(device, [&](Device& d) {
        const Device::Running run = d.Current();
        if (run.mode == ModeIdle) return qorNotConfiguredErr;
        if (run.mode != ModeRealTime) return qorWrongModeErr;
        if (!run.engine) return qorUnknownErr;
        const qorStatus status = run.engine->GetRealTimeFrame(sweep, frame, alphaFrame);
        return status == qorNotConfiguredErr ? status : Retrieved(d, status);
    });
}

qorStatus qorGetIQ_32f(int device, void* iq) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(iq)) return qorNullPtrErr;
        return GetIqSamples(d, static_cast<float*>(iq), IqReturnLength(d), 0);
    });
}

qorStatus qorGetIQ_64f(int device, void* iq) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(iq)) return qorNullPtrErr;
        const int count = IqReturnLength(d);
        std::vector<float> narrow(2 * static_cast<std::size_t>(count));
        const qorStatus status = GetIqSamples(d, narrow.data(), count, 0);
        // A refused call leaves the caller's buffer as it was.
        if (status >= 0) ippsConvert_32f64f(narrow.data(), static_cast<double*>(iq), 2 * count);
        return status;
    });
}

qorStatus qorGetIQ(int device, void* iq, int iqCount, int purge) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(iq)) return qorNullPtrErr;
        if (iqCount < 1) return qorInvalidParameterErr;
        return GetIqSamples(d, static_cast<float*>(iq), iqCount, purge);
    });
}

qorStatus qorGetIQData(int device, IQPacket* packet) {
    return WithDevice(device, [&](Device& d) {
        if (packet == nullptr || packet->iqData == nullptr) return qorNullPtrErr;
        if (packet->iqCount < 1) return qorInvalidParameterErr;
        if (d.m_mode == ModeIdle) return qorNotConfiguredErr;
        return IqTail(d, *packet);
    });
}

qorStatus qorGetIQDataUnpacked(int device, void* iqData, int iqCount, int purge, int* dataRemaining,
                               int* sampleLoss, int* sec, int* milli) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(iqData)) return qorNullPtrErr;
        if (iqCount < 1) return qorInvalidParameterErr;
        if (d.m_mode == ModeIdle) return qorNotConfiguredErr;
        IQPacket packet{static_cast<float*>(iqData), iqCount, purge, 0, 0, 0, 0};
        const qorStatus status = IqTail(d, packet);
        if (dataRemaining) *dataRemaining = packet.dataRemaining;
        if (sampleLoss) *sampleLoss = packet.sampleLoss;
        if (sec) *sec = packet.sec;
        if (milli) *milli = packet.milli;
        return status;
    });
}

qorStatus qorGetAudio(int device, float* audio) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(audio)) return qorNullPtrErr;
        const Device::Running run = d.Current();
        if (run.mode != ModeAudio) return qorNotConfiguredErr;
        if (!run.engine) return qorUnknownErr;
        return Retrieved(d, run.engine->GetSweep32(audio, audio));
    });
}

// ---- Tracking generator ----------------------------------------------------
// The set calls keep off the generator while a generator sweep drives it.

qorStatus qorAttachTg(int device) {
    return WithDevice(device, [](Device& d) {
        return d.m_link.tg.Attach() ? qorNoError : qorTrackingGeneratorNotFound;
    });
}

qorStatus qorIsTgAttached(int device, bool* attached) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(attached)) return qorNullPtrErr;
        *attached = d.m_link.tg.Attached();
        return qorNoError;
    });
}

qorStatus qorStoreTgThru(int device, int flag) {
    return WithDevice(device, [&](Device& d) {
        if (flag != 1 && flag != 2) return qorInvalidParameterErr;
        const Device::Running run = d.Current();
        if (run.mode != ModeTGSweep) return qorNotConfiguredErr;
        if (!run.engine) return qorUnknownErr;
        return run.engine->StoreTgThru(flag);
    });
}

qorStatus qorSetTg(int device, double frequency, double amplitude) {
    return WithDevice(device, [&](Device& d) {
        if (d.m_mode == ModeTGSweep) return qorNotConfiguredErr;
        return d.m_link.tg.SetFrequencyAmplitude(frequency, amplitude);
    });
}

qorStatus qorSetTgReference(int device, int reference) {
    return WithDevice(device, [&](Device& d) {
        if (d.m_mode == ModeTGSweep) return qorNotConfiguredErr;
        return d.m_link.tg.SetReference(reference);
    });
}

qorStatus qorGetTgFreqAmpl(int device, double* frequency, double* amplitude) {
    return WithDevice(device, [&](Device& d) {
        if (d.m_mode == ModeTGSweep) return qorNotConfiguredErr;
        const qor::TGInterface& tg = d.m_link.tg;
        if (!tg.Attached()) return qorTrackingGeneratorNotFound;
        if (frequency) *frequency = tg.frequency;
        if (amplitude) *amplitude = tg.amplitude;
        return qorNoError;
    });
}

// ---- Timebase and diagnostics ----------------------------------------------

qorStatus qorSetTimebase(int device, int timebase) {
    return WithDevice(device, [&](Device& d) { return qor::SetTimebase(d, timebase); });
}

qorStatus qorConfigIFOutput(int device, double inputFreq, double outputFreq, int inputAtten, int outputGain) {
    return WithDevice(device, [&](Device& d) {
        return qor::ConfigIFOutput(d, inputFreq, outputFreq, inputAtten, outputGain);
    });
}

qorStatus qorSelfTest(int device, SelfTestResults* results) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(results)) return qorNullPtrErr;
        return qor::SelfTest(d, *results);
    });
}

qorStatus qorSetTimebaseCorrection(int device, double correction) {
    return WithDevice(device, [&](Device& d) {
        if (!qor::IsTimebaseCorrection(correction)) return qorInvalidParameterErr;
        d.m_calibration.corr->timebaseFactor = correction;
        return qorNoError;
    });
}

qorStatus qorGetTimebaseCorrection(int device, double* correction) {
    return WithDevice(device, [&](Device& d) {
        if (AnyNull(correction)) return qorNullPtrErr;
        *correction = d.m_calibration.corr->timebaseFactor;
        return qorNoError;
    });
}

qorStatus qorAdjustTimebase(int device, double correction) {
    return WithDevice(device, [&](Device& d) { return qor::AdjustTimebase(d, correction); });
}
