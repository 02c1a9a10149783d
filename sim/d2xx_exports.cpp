// The 15 D2XX functions with the vendor's C signatures, answered by the bus.
#include <exception>
#include <type_traits>

#include "bus.h"
#include "d2xx_api.h"

#define QORSIM_D2XX extern "C" __attribute__((visibility("default")))

using qorsim::Bus;

namespace {

// Exceptions never leave the library: they become an I/O error.
template <typename F>
FT_STATUS Guarded(F&& body) {
    try {
        return body();
    } catch (...) {
        return FT_OTHER_ERROR;
    }
}

// On the bus; `gone` after it has been destroyed at exit.
template <typename F>
FT_STATUS OnBus(FT_STATUS gone, F&& body) {
    return Guarded([&] { return Bus::With(gone, body); });
}

template <typename F>
FT_STATUS OnChannel(FT_HANDLE handle, F&& body) {
    return OnBus(FT_INVALID_HANDLE, [&](Bus& bus) {
        Bus::Channel ch;
        if (!bus.Resolve(handle, &ch)) return static_cast<FT_STATUS>(FT_INVALID_HANDLE);
        return static_cast<FT_STATUS>(body(ch));
    });
}

}  // namespace

QORSIM_D2XX FT_STATUS FT_CreateDeviceInfoList(DWORD* count) {
    if (count) *count = 0;  // what a bus destroyed at exit lists
    return OnBus(FT_OK, [&](Bus& bus) { return bus.CreateDeviceInfoList(count); });
}

QORSIM_D2XX FT_STATUS FT_GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD* type, DWORD* id, DWORD* locId,
                                             void* serial, void* description, FT_HANDLE* handle) {
    return OnBus(FT_DEVICE_NOT_FOUND, [&](Bus& bus) {
        return bus.GetDeviceInfoDetail(index, flags, type, id, locId, static_cast<char*>(serial),
                                       static_cast<char*>(description), handle);
    });
}

QORSIM_D2XX FT_STATUS FT_Open(int index, FT_HANDLE* handle) {
    if (handle) *handle = nullptr;
    return OnBus(FT_DEVICE_NOT_FOUND, [&](Bus& bus) { return bus.Open(index, handle); });
}

QORSIM_D2XX FT_STATUS FT_Close(FT_HANDLE handle) {
    return OnBus(FT_INVALID_HANDLE, [&](Bus& bus) { return bus.Close(handle); });
}

QORSIM_D2XX FT_STATUS FT_SetBaudRate(FT_HANDLE handle, ULONG) {
    return OnChannel(handle, [&](const Bus::Channel& ch) {
        return ch.device->Alive(ch.epoch, qorsim::SteadyClock::now()) ? FT_OK : FT_IO_ERROR;
    });
}

QORSIM_D2XX FT_STATUS FT_SetTimeouts(FT_HANDLE handle, ULONG readTimeout, ULONG writeTimeout) {
    return OnChannel(handle, [&](const Bus::Channel& ch) {
        return ch.device->SetTimeouts(ch.channel, ch.epoch, readTimeout, writeTimeout);
    });
}

QORSIM_D2XX FT_STATUS FT_SetLatencyTimer(FT_HANDLE handle, UCHAR) {
    return OnChannel(handle, [&](const Bus::Channel& ch) {
        return ch.device->Alive(ch.epoch, qorsim::SteadyClock::now()) ? FT_OK : FT_IO_ERROR;
    });
}

QORSIM_D2XX FT_STATUS FT_Write(FT_HANDLE handle, void* buffer, DWORD count, DWORD* written) {
    if (written) *written = 0;
    if (!buffer && count) return FT_INVALID_PARAMETER;
    return OnChannel(handle, [&](const Bus::Channel& ch) {
        return ch.device->Write(ch.channel, ch.epoch, static_cast<const uint8_t*>(buffer), count, written);
    });
}

QORSIM_D2XX FT_STATUS FT_Read(FT_HANDLE handle, void* buffer, DWORD count, DWORD* read) {
    DWORD ignored = 0;
    if (!read) read = &ignored;
    *read = 0;
    if (!buffer && count) return FT_INVALID_PARAMETER;
    return OnChannel(handle, [&](const Bus::Channel& ch) {
        return ch.device->Read(ch.channel, ch.epoch, static_cast<uint8_t*>(buffer), count, read);
    });
}

QORSIM_D2XX FT_STATUS FT_GetQueueStatus(FT_HANDLE handle, DWORD* queued) {
    DWORD ignored = 0;
    if (!queued) queued = &ignored;
    *queued = 0;
    return OnChannel(handle, [&](const Bus::Channel& ch) { return ch.device->QueueStatus(ch.channel, ch.epoch, queued); });
}

QORSIM_D2XX FT_STATUS FT_Purge(FT_HANDLE handle, ULONG mask) {
    return OnChannel(handle, [&](const Bus::Channel& ch) { return ch.device->Purge(ch.channel, ch.epoch, mask); });
}

QORSIM_D2XX FT_STATUS FT_GetDeviceInfo(FT_HANDLE handle, FT_DEVICE* device, DWORD* id, char* serial, char* description,
                                       void*) {
    return OnBus(FT_INVALID_HANDLE,
                 [&](Bus& bus) { return bus.GetDeviceInfo(handle, device, id, serial, description); });
}

QORSIM_D2XX FT_STATUS FT_CyclePort(FT_HANDLE handle) {
    return OnChannel(handle, [&](const Bus::Channel& ch) { return ch.device->CyclePort(ch.epoch); });
}

QORSIM_D2XX FT_STATUS FT_EE_UARead(FT_HANDLE handle, UCHAR* data, DWORD size, DWORD* read) {
    if (read) *read = 0;
    if (!data && size) return FT_INVALID_PARAMETER;
    return OnChannel(handle, [&](const Bus::Channel& ch) { return ch.device->ReadUserArea(ch.epoch, data, size, read); });
}

QORSIM_D2XX FT_STATUS FT_EE_UAWrite(FT_HANDLE handle, UCHAR* data, DWORD size) {
    if (!data && size) return FT_INVALID_PARAMETER;
    return OnChannel(handle, [&](const Bus::Channel& ch) { return ch.device->WriteUserArea(ch.epoch, data, size); });
}

// The exports must keep the vendor's ABI exactly.
static_assert(std::is_same_v<decltype(&FT_CreateDeviceInfoList), FT_CreateDeviceInfoList_t>);
static_assert(std::is_same_v<decltype(&FT_GetDeviceInfoDetail), FT_GetDeviceInfoDetail_t>);
static_assert(std::is_same_v<decltype(&FT_Open), FT_Open_t>);
static_assert(std::is_same_v<decltype(&FT_Close), FT_Close_t>);
static_assert(std::is_same_v<decltype(&FT_SetBaudRate), FT_SetBaudRate_t>);
static_assert(std::is_same_v<decltype(&FT_SetTimeouts), FT_SetTimeouts_t>);
static_assert(std::is_same_v<decltype(&FT_SetLatencyTimer), FT_SetLatencyTimer_t>);
static_assert(std::is_same_v<decltype(&FT_Write), FT_Write_t>);
static_assert(std::is_same_v<decltype(&FT_Read), FT_Read_t>);
static_assert(std::is_same_v<decltype(&FT_GetQueueStatus), FT_GetQueueStatus_t>);
static_assert(std::is_same_v<decltype(&FT_Purge), FT_Purge_t>);
static_assert(std::is_same_v<decltype(&FT_GetDeviceInfo), FT_GetDeviceInfo_t>);
static_assert(std::is_same_v<decltype(&FT_CyclePort), FT_CyclePort_t>);
static_assert(std::is_same_v<decltype(&FT_EE_UARead), FT_EE_UARead_t>);
static_assert(std::is_same_v<decltype(&FT_EE_UAWrite), FT_EE_UAWrite_t>);
