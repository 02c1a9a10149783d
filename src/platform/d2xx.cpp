#include "d2xx.h"

#include <dlfcn.h>

#include <cstdlib>

#include "os.h"

namespace qor::d2xx {
namespace {

constexpr const char* kVendorLibrary = "libftd2xx.so";

// Stand-ins when no D2XX library is present: an empty bus.
FT_STATUS NoList(DWORD* count) {
    if (count) *count = 0;
    return FT_OK;
}
FT_STATUS NoDetail(DWORD, DWORD*, DWORD*, DWORD*, DWORD*, void*, void*, FT_HANDLE*) { return FT_DEVICE_NOT_FOUND; }
FT_STATUS NoOpen(int, FT_HANDLE* handle) {
    if (handle) *handle = nullptr;
    return FT_DEVICE_NOT_FOUND;
}
FT_STATUS NoHandle(FT_HANDLE) { return FT_INVALID_HANDLE; }
FT_STATUS NoBaud(FT_HANDLE, ULONG) { return FT_INVALID_HANDLE; }
FT_STATUS NoTimeouts(FT_HANDLE, ULONG, ULONG) { return FT_INVALID_HANDLE; }
FT_STATUS NoLatency(FT_HANDLE, UCHAR) { return FT_INVALID_HANDLE; }
FT_STATUS NoTransfer(FT_HANDLE, void*, DWORD, DWORD* done) {
    if (done) *done = 0;
    return FT_INVALID_HANDLE;
}
FT_STATUS NoQueue(FT_HANDLE, DWORD* queued) {
    if (queued) *queued = 0;
    return FT_INVALID_HANDLE;
}
FT_STATUS NoInfo(FT_HANDLE, FT_DEVICE*, DWORD*, char*, char*, void*) { return FT_INVALID_HANDLE; }
FT_STATUS NoUARead(FT_HANDLE, UCHAR*, DWORD, DWORD* read) {
    if (read) *read = 0;
    return FT_INVALID_HANDLE;
}
FT_STATUS NoUAWrite(FT_HANDLE, UCHAR*, DWORD) { return FT_INVALID_HANDLE; }

constexpr Table kAbsent = {
    NoList,     NoDetail, NoOpen, NoHandle, NoBaud,   NoTimeouts, NoLatency, NoTransfer,
    NoTransfer, NoQueue,  NoBaud, NoInfo,   NoHandle, NoUARead,   NoUAWrite,
};

// The loaded library's own list refresh, and the virtual instrument's clock
// speed, when it has one.
FT_CreateDeviceInfoList_t loadedList = nullptr;
using ClockScaleFn = double (*)();
ClockScaleFn clockScaleOfInstrument = nullptr;

// Refreshing the list is where the library meets a (possibly new) bench, so
// the clock speed is taken again each time.
FT_STATUS ListAndTakeClock(DWORD* count) {
    const FT_STATUS status = loadedList(count);
    if (clockScaleOfInstrument) os::SetClockScale(clockScaleOfInstrument());
    return status;
}

template <typename Fn>
bool Resolve(void* library, const char* name, Fn& entry, std::string& problem) {
    entry = reinterpret_cast<Fn>(dlsym(library, name));
    if (!entry && problem.empty()) problem = std::string("missing symbol ") + name;
    return entry != nullptr;
}

struct Loaded {
    Table table = kAbsent;
    std::string problem;
};

Loaded Load() {
    Loaded result;
    // An explicit choice is used alone: a test that names the virtual
    // instrument must never fall through to real hardware.
    const char* chosen = std::getenv("QOR_D2XX_LIBRARY");
    const std::string name = (chosen && *chosen) ? chosen : kVendorLibrary;
    void* library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* why = dlerror();
        result.problem = why ? why : "cannot load " + name;
        return result;
    }
    Table t{};
    std::string problem;
    Resolve(library, "FT_CreateDeviceInfoList", t.CreateDeviceInfoList, problem);
    Resolve(library, "FT_GetDeviceInfoDetail", t.GetDeviceInfoDetail, problem);
    Resolve(library, "FT_Open", t.Open, problem);
    Resolve(library, "FT_Close", t.Close, problem);
    Resolve(library, "FT_SetBaudRate", t.SetBaudRate, problem);
    Resolve(library, "FT_SetTimeouts", t.SetTimeouts, problem);
    Resolve(library, "FT_SetLatencyTimer", t.SetLatencyTimer, problem);
    Resolve(library, "FT_Write", t.Write, problem);
    Resolve(library, "FT_Read", t.Read, problem);
    Resolve(library, "FT_GetQueueStatus", t.GetQueueStatus, problem);
    Resolve(library, "FT_Purge", t.Purge, problem);
    Resolve(library, "FT_GetDeviceInfo", t.GetDeviceInfo, problem);
    Resolve(library, "FT_CyclePort", t.CyclePort, problem);
    Resolve(library, "FT_EE_UARead", t.EE_UARead, problem);
    Resolve(library, "FT_EE_UAWrite", t.EE_UAWrite, problem);
    if (!problem.empty()) {
        result.problem = name + ": " + problem;
        return result;  // the library stays loaded but unused
    }
    clockScaleOfInstrument = reinterpret_cast<ClockScaleFn>(dlsym(library, "qorsim_clock_scale"));
    loadedList = t.CreateDeviceInfoList;
    t.CreateDeviceInfoList = ListAndTakeClock;
    result.table = t;
    return result;
}

const Loaded& Instance() {
    static const Loaded loaded = Load();
    return loaded;
}

}  // namespace

const Table& Functions() { return Instance().table; }

const std::string& LoadProblem() { return Instance().problem; }

}  // namespace qor::d2xx
