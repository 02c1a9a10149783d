#include "tg_interface.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "analyzer_link.h"
#include "hold.h"
#include "os.h"
#include "qor_lib.h"

namespace qor {
namespace {

constexpr char kDescription[] = "TarvenWorksTG";
constexpr size_t kDescriptionCompared = 13;  // further characters are the chip's own
constexpr uint32_t kTimeoutMs = 1000;
constexpr UCHAR kLatencyMs = 2;
constexpr uint32_t kCommandPauseMs = 6;
constexpr uint8_t kNoCalibration = 0x80;
constexpr int kReadGroup = 4;
constexpr int kTimebaseWordAt = 2;
constexpr uint16_t kOrskFamilyWord = 2;
constexpr int kUserAreaBytes = 8;  // one f64: a stored timebase factor, 0.0 for none
// The output when the generator is let go: frequency word 0 and the family's
// weakest code.
constexpr uint8_t kRestCode[2] = {30, 60};

std::string CacheFileName(int32_t serial) {
    char name[16];
    std::snprintf(name, sizeof name, "%08d.tg", serial);
    return CalFolder() + name;
}

bool ReadCacheFile(const std::string& name, uint8_t* eeprom) {
    struct stat info {};
    if (stat(name.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return false;
    std::FILE* file = std::fopen(name.c_str(), "rb");
    if (!file) return false;
    // A file of another length is no copy of the memory: the generator is read instead.
    const bool whole = std::fread(eeprom, 1, kTgMemoryBytes, file) == kTgMemoryBytes && std::fgetc(file) == EOF;
    std::fclose(file);
    return whole;
}

void WriteCacheFile(const std::string& name, const uint8_t* eeprom) {
    std::FILE* file = std::fopen(name.c_str(), "wb");
    if (!file) return;
    std::fwrite(eeprom, 1, kTgMemoryBytes, file);
    std::fclose(file);
}

}  // namespace

bool TGInterface::Attach() {
    if (FT_HANDLE held = handle.load()) {
        // A generator that has left the bus is let go, and the bus searched again.
        DWORD queued = 0;
        if (Ft().GetQueueStatus(held, &queued) == FT_OK) return true;
        Ft().Close(held);
        handle = nullptr;
    }
    calibrated = false;
    isOrskTg = false;
    timebaseFactor = 1.0;
    FT_HANDLE opened = nullptr;
    {
        // The driver's list is one for the process; the open takes an index into it.
        std::lock_guard<std::mutex> lock(AnalyzerLink::DeviceListMutex());
        DWORD count = 0;
        if (Ft().CreateDeviceInfoList(&count) != FT_OK || count == 0) return false;
        for (DWORD i = 0; i < count; ++i) {
            DWORD flags = 0, type = 0, id = 0, location = 0;
            char serialField[FT_SERIAL_SIZE] = {};
            char description[FT_DESCRIPTION_SIZE] = {};
            FT_HANDLE listed = nullptr;
            Ft().GetDeviceInfoDetail(i, &flags, &type, &id, &location, serialField, description, &listed);
            if (std::strncmp(description, kDescription, kDescriptionCompared) != 0) continue;
            if (Ft().Open(static_cast<int>(i), &opened) != FT_OK) return false;
            std::memcpy(serialText, serialField, 8);
            serialText[8] = '\0';
            break;
        }
    }
    if (!opened) return false;
    Ft().SetBaudRate(opened, kBaud);
    Ft().SetTimeouts(opened, kTimeoutMs, kTimeoutMs);
    Ft().SetLatencyTimer(opened, kLatencyMs);
    serial = std::atoi(serialText);
    handle = opened;
    LoadCalibration();
    return true;
}

void TGInterface::LoadCalibration() {
    const std::string name = CacheFileName(serial);
    calibrated = ReadCacheFile(name, eeprom);
    if (!calibrated) {
        std::memset(eeprom, kNoCalibration, sizeof eeprom);
        for (int address = 0; address <= kTgMemoryBytes - kReadGroup; address += kReadGroup) {
            scratch[0] = 'E';
            scratch[1] = 0xFF;
            scratch[2] = 0x01;
            scratch[3] = LowByte(address);
            scratch[4] = HighByte(address);
            SendCommand(5, 0);
            // A short read leaves the rest of the group as it was filled.
            DWORD received = 0;
            Ft().Read(handle, eeprom + address, kReadGroup, &received);
        }
        calibrated = eeprom[4] != kNoCalibration;
        if (calibrated) WriteCacheFile(name, eeprom);
    }
    if (calibrated) {
        isOrskTg = (eeprom[0] | eeprom[1] << 8) == kOrskFamilyWord;
        const int word = eeprom[kTimebaseWordAt] | eeprom[kTimebaseWordAt + 1] << 8;
        timebaseFactor = word >= 28768 && word <= 36768 ? (word - 32768) * 1e-9 + 1.0 : 1.0;
    }
    // A factor stored in the chip's user area wins, calibrated or not.
    uint8_t area[kUserAreaBytes] = {};
    DWORD received = 0;
    Ft().EE_UARead(handle, area, kUserAreaBytes, &received);
    double stored = 0.0;
    std::memcpy(&stored, area, sizeof stored);
    if (received == kUserAreaBytes && stored != 0.0) timebaseFactor = stored;
}

void TGInterface::Detach() {
    FT_HANDLE open = handle.load();
    if (!open) return;
    SendWord('F', 0);
    scratch[0] = 'A';
    scratch[1] = kRestCode[isOrskTg ? 1 : 0];
    SendCommand(2, kCommandPauseMs);
    Ft().Close(open);
    handle = nullptr;
}

void TGInterface::SendCommand(int n, uint32_t pauseMs) {
    // Without a generator (a sweep runs all the same) nothing is sent.
    FT_HANDLE open = handle.load();
    if (!open) return;
    uint8_t wire[2 * sizeof scratch + 1];
    const int size = FrameCommand(scratch, n < 1 ? 0 : n, wire);
    DWORD written = 0;
    Ft().Write(open, wire, static_cast<DWORD>(size), &written);
    if (pauseMs) os::SleepMs(pauseMs);
}

void TGInterface::SendWord(char command, uint32_t word) {
    scratch[0] = static_cast<uint8_t>(command);
    for (int i = 0; i < 4; ++i) scratch[1 + i] = static_cast<uint8_t>(word >> (8 * i));
    SendCommand(5, kCommandPauseMs);
}

qorStatus TGInterface::SetFrequencyAmplitude(double frequencyHz, double amplitudeDbm) {
    if (!Attached()) return qorTrackingGeneratorNotFound;
    bool held = isOrskTg ? Hold(frequencyHz, 1e5, 12.4e9) : Hold(frequencyHz, 10.0, 4.4e9);
    held |= Hold(amplitudeDbm, -30.0, -10.0);
    SendWord('F', static_cast<uint32_t>(std::floor(frequencyHz * timebaseFactor * 0.1 + 0.5)));
    // The level's calibration is by the frequency the generator is asked
    // for, not by the corrected one.
    scratch[0] = 'A';
    scratch[1] = LowByte(AmplitudeCode(frequencyHz, amplitudeDbm, -1));
    SendCommand(2, kCommandPauseMs);
    frequency = frequencyHz;
    amplitude = amplitudeDbm;
    return held ? qorParameterClamped : qorNoError;
}

qorStatus TGInterface::SetReference(int reference) {
    if (!Attached()) return qorTrackingGeneratorNotFound;
    if (reference < 0 || reference > 2) return qorInvalidParameterErr;
    // The 4.4 GHz family has no choice to pass on.
    if (!isOrskTg) return reference <= 1 ? qorNoError : qorInvalidParameterErr;
    static constexpr uint8_t kWire[3] = {0, 2, 1};
    scratch[0] = 'R';
    scratch[1] = kWire[reference];
    SendCommand(2, kCommandPauseMs);
    return qorNoError;
}

void TGInterface::BuildAmplitudeList(int list, double amplitudeDbm, double start, double step, int points) {
    qor::BuildAmplitudeList(lists[list & 1], Memory(), amplitudeDbm, start, step, points);
}

void TGInterface::SendAmplitudeList(int list) {
    const AmplitudeList& l = lists[list & 1];
    for (int i = 0; i < l.length; ++i) {
        scratch[0] = 'L';
        scratch[1] = static_cast<uint8_t>(i);
        scratch[2] = LowByte(l.code[i]);
        scratch[3] = HighByte(l.run[i]);
        scratch[4] = LowByte(l.run[i]);
        SendCommand(5, kCommandPauseMs);
    }
}

void TGInterface::ProgramSweep(double start, double step, int points) {
    // Cut, not rounded, and without the timebase factor.
    SendWord('S', static_cast<uint32_t>(start * 0.1));
    SendWord('T', static_cast<uint32_t>(step * 0.1));
    scratch[0] = 'G';
    scratch[1] = LowByte(points);
    scratch[2] = HighByte(points);
    SendCommand(3, kCommandPauseMs);
}

}  // namespace qor
