// The channels, the framing and the sample stream of AnalyzerLink. The
// command set is in analyzer_commands.cpp.
#include "analyzer_link.h"

#include <algorithm>
#include <cstring>

#include "ipps.h"
#include "os.h"

namespace qor {
namespace {

constexpr char kStreamDescription[] = "Tarven Works A";
constexpr char kCommandDescription[] = "Tarven Works B";
constexpr int kDescriptionLength = 14;

constexpr uint8_t kFrameEnd = 0xC0;
constexpr uint8_t kEscape = 0xDB;
constexpr uint8_t kEscapedEnd = 0xDC;
constexpr uint8_t kEscapedEscape = 0xDD;

constexpr uint8_t kCaptureSync[4] = {0xA5, 0x5A, 0xF0, 0x0F};
constexpr uint8_t kHeaderFirst = 0xE1;
constexpr uint8_t kHeaderSecond = 0x1E;

// Values at or beyond this code (98% of full scale), and how many of them in
// one block, that tell an overloaded converter.
constexpr Ipp16s kOverloadCode = 32112;
constexpr int kOverloadValues = 3;
// A stream that lost an odd number of bytes pairs each value's high byte with
// the next one's low byte: a strong signal then fills the full scale, a weak
// one (a value's high byte no more than its sign) comes out 256 times too
// large, with low bytes of 0x00 or 0xFF only. Values of at least this size,
// most of them with such a low byte (against 2 in 256 in a true signal),
// tell it; so many of them that chance plays no part. The size lies between
// two multiples of 256, so that a true signal whose peaks just pass it does
// not dwell on such bytes. It shows in nearly every value: every fourth one
// is looked at.
constexpr Ipp16s kShiftedFrom = 384;
constexpr int kShiftedValues = 16;
constexpr int kShiftedStride = 4;

// The stream channel's read time-out: how long a read waits for data to begin.
constexpr uint32_t kStreamReadLimitMs = 1000;

constexpr int kOpenTries = 10;
constexpr uint32_t kOpenRetryMs = 250;
constexpr int kResyncReads = 2560;

struct ChannelInfo {
    DWORD flags = 0;
    char serial[FT_SERIAL_SIZE] = {};
    char description[FT_DESCRIPTION_SIZE] = {};
};

ChannelInfo ReadChannelInfo(const d2xx::Table& ft, DWORD index) {
    ChannelInfo info;
    DWORD type = 0, id = 0, location = 0;
    FT_HANDLE handle = nullptr;
    ft.GetDeviceInfoDetail(index, &info.flags, &type, &id, &location, info.serial, info.description, &handle);
    info.serial[AnalyzerLink::kSerialLength] = '\0';
    info.description[kDescriptionLength] = '\0';
    return info;
}

bool IsFrameHeader(const uint8_t* bytes) { return bytes[0] == kHeaderFirst && bytes[1] == kHeaderSecond; }

}  // namespace

int32_t DecimalSerial(const char* serial) {
    int32_t value = 0;
    int digits = 0;
    for (; digits < AnalyzerLink::kSerialLength && serial[digits] != '\0'; ++digits) {
        const char c = serial[digits];
        if (c < '0' || c > '9') return 0;
        value = value * 10 + (c - '0');
    }
    return digits == 0 ? 0 : value;
}

AnalyzerLink::AnalyzerLink() : AnalyzerLink(nullptr) {}

AnalyzerLink::AnalyzerLink(const d2xx::Table& d2xx) : AnalyzerLink(&d2xx) {}

AnalyzerLink::AnalyzerLink(const d2xx::Table* d2xx)
    : plan(std::make_unique<TuningPlan>(family)), workBuffer(ippsMalloc_8u(kWorkBufferBytes)), ft_(d2xx) {
    if (!workBuffer) throw std::bad_alloc();
    std::memset(workBuffer, 0, kWorkBufferBytes);
}

AnalyzerLink::~AnalyzerLink() {
    Close();
    ippsFree(workBuffer);
}

// ---- Channels --------------------------------------------------------------

DWORD AnalyzerLink::RefreshDeviceList() {
    DWORD count = 0;
    if (Ft().CreateDeviceInfoList(&count) != FT_OK) return 0;
    return count;
}

void AnalyzerLink::EnumerateChannels(int serials[kMaxUnits], int streamIndex[kMaxUnits], int commandIndex[kMaxUnits],
                                     int* pairCount, int* channelCount) {
    const int channels = *channelCount;
    int units = 0;
    for (int i = 0; i < channels && units < kMaxUnits; ++i) {
        const ChannelInfo info = ReadChannelInfo(Ft(), static_cast<DWORD>(i));
        if (std::strcmp(info.description, kStreamDescription) != 0) continue;
        if (info.flags & FT_FLAGS_OPENED) continue;  // held by another process
        serials[units] = DecimalSerial(info.serial);
        streamIndex[units] = i;
        commandIndex[units] = -1;
        ++units;
    }
    for (int i = 0; i < channels && *pairCount < kMaxUnits; ++i) {
        const ChannelInfo info = ReadChannelInfo(Ft(), static_cast<DWORD>(i));
        if (std::strcmp(info.description, kCommandDescription) != 0) continue;
        const int serial = DecimalSerial(info.serial);
        for (int u = 0; u < units; ++u) {
            if (serials[u] == serial && commandIndex[u] < 0) {
                commandIndex[u] = i;
                ++*pairCount;
                break;
            }
        }
    }
    // Entries past the units found stay as the caller gave them.
}

std::mutex& AnalyzerLink::DeviceListMutex() {
    static std::mutex mutex;
    return mutex;
}

int AnalyzerLink::ListUnits(int serials[kMaxUnits], int streamIndex[kMaxUnits], int commandIndex[kMaxUnits]) {
    int all[kMaxUnits], stream[kMaxUnits], command[kMaxUnits];
    std::fill_n(stream, kMaxUnits, -1);
    std::fill_n(command, kMaxUnits, -1);
    int channels = static_cast<int>(RefreshDeviceList());
    if (channels < 2) return 0;
    int pairs = 0;
    EnumerateChannels(all, stream, command, &pairs, &channels);
    int count = 0;
    for (int u = 0; u < kMaxUnits; ++u) {
        if (stream[u] < 0 || command[u] < 0) continue;
        serials[count] = all[u];
        streamIndex[count] = stream[u];
        commandIndex[count] = command[u];
        ++count;
    }
    return count;
}

AnalyzerLink::OpenResult AnalyzerLink::OpenUnit(int serial) {
    if (isOpen) return OpenResult::Opened;
    {
        std::lock_guard<std::mutex> lock(DeviceListMutex());
        int serials[kMaxUnits], stream[kMaxUnits], command[kMaxUnits];
        const int count = ListUnits(serials, stream, command);
        const int u = static_cast<int>(std::find(serials, serials + count, serial) - serials);
        if (u == count) return OpenResult::NotListed;
        if (!OpenChannels(stream[u], command[u])) return OpenResult::Failed;
    }
    Setup();
    return OpenResult::Opened;
}

bool AnalyzerLink::Open(int streamIndex, int commandIndex) {
    if (isOpen) return true;
    if (!OpenChannels(streamIndex, commandIndex)) return false;
    Setup();
    return true;
}

void AnalyzerLink::Identify(DeviceFamily unitFamily, bool readsVoltage) {
    family = unitFamily;
    voltageReadout = readsVoltage;
    orskPath = kPathUnknown;
}

bool AnalyzerLink::OpenChannels(int streamIndex, int commandIndex) {
    if (streamIndex < 0) return false;
    FT_STATUS status = FT_DEVICE_NOT_FOUND;
    for (int attempt = 0; attempt < kOpenTries; ++attempt) {
        status = Ft().Open(streamIndex, &streamChannel);
        if (status == FT_OK) break;
        streamChannel = nullptr;
        if (attempt + 1 < kOpenTries) os::SleepMs(kOpenRetryMs);
    }
    if (status != FT_OK) return false;
    if (Ft().Open(commandIndex, &commandChannel) != FT_OK) {
        commandChannel = nullptr;
        Close();  // a half-open link would be taken for open by the next call
        return false;
    }
    isOpen = true;
    commandFailed_ = false;
    return true;
}

void AnalyzerLink::Setup() {
    orskPath = kPathUnknown;
    Ft().SetBaudRate(commandChannel, kCommandBaud);
    Ft().SetTimeouts(commandChannel, 5000, 5000);
    Ft().SetTimeouts(streamChannel, kStreamReadLimitMs, kStreamReadLimitMs);
    Ft().SetLatencyTimer(commandChannel, 2);
    Ft().SetLatencyTimer(streamChannel, 16);

    os::SleepMs(50);
    StopStream();  // also drains what an earlier use left
    Command({'L', 0x00, 0x00, 0x4C, 0x42});
    InitAdc();
    RestoreSynthModulus();
}

void AnalyzerLink::Close() {
    if (streamChannel) Ft().Close(streamChannel);
    if (commandChannel) Ft().Close(commandChannel);
    streamChannel = nullptr;
    commandChannel = nullptr;
    isOpen = false;
    referenceLocked = false;
}

void AnalyzerLink::CyclePort() {
    if (streamChannel) Ft().CyclePort(streamChannel);
}

void AnalyzerLink::ReadSerialString(char out[16]) {
    char serial[FT_SERIAL_SIZE] = {};
    char description[FT_DESCRIPTION_SIZE] = {};
    FT_DEVICE type = 0;
    DWORD id = 0;
    Ft().GetDeviceInfo(commandChannel, &type, &id, serial, description, nullptr);
    serial[kSerialLength] = '\0';
    std::memcpy(out, serial, FT_SERIAL_SIZE);
}

DWORD AnalyzerLink::ReadUserArea(uint8_t data[16]) {
    DWORD received = 0;
    Ft().EE_UARead(commandChannel, data, 16, &received);
    return std::min<DWORD>(received, 16);
}

void AnalyzerLink::WriteUserArea(const uint8_t data[16]) {
    uint8_t copy[16];
    std::memcpy(copy, data, sizeof copy);
    Ft().EE_UAWrite(commandChannel, copy, sizeof copy);
}

// ---- Framing -----------------------------------------------------------------

int FrameCommand(const uint8_t* payload, int length, uint8_t* wire) {
    int size = 0;
    for (int i = 0; i < length; ++i) {
        const uint8_t b = payload[i];
        if (b == kFrameEnd) {
            wire[size++] = kEscape;
            wire[size++] = kEscapedEnd;
        } else if (b == kEscape) {
            wire[size++] = kEscape;
            wire[size++] = kEscapedEscape;
        } else {
            wire[size++] = b;
        }
    }
    wire[size++] = kFrameEnd;
    return size;
}

void AnalyzerLink::SendPayload(const uint8_t* payload, int length, FT_HANDLE channel, bool noDelay) {
    constexpr int kMaxPayload = 5;
    uint8_t wire[2 * kMaxPayload + 1];
    const DWORD size = static_cast<DWORD>(FrameCommand(payload, std::clamp(length, 0, kMaxPayload), wire));
    DWORD written = 0;
    Ft().Write(channel ? channel : commandChannel, wire, size, &written);
    if (!noDelay) os::SleepMs(commandDelay);
}

void AnalyzerLink::Command(std::initializer_list<uint8_t> payload, uint32_t extraPauseMs) {
    SendPayload(payload.begin(), static_cast<int>(payload.size()));
    if (extraPauseMs) os::SleepMs(extraPauseMs);
}

DWORD AnalyzerLink::ReadReply(void* out, DWORD count) {
    DWORD received = 0;
    if (Ft().Read(commandChannel, out, count, &received) != FT_OK) commandFailed_ = true;
    return std::min(received, count);
}

void AnalyzerLink::WriteRegister(int address, int value) { Command({'I', LowByte(address), LowByte(value)}); }

// ---- The stream -------------------------------------------------------------

DWORD AnalyzerLink::StreamQueued() {
    DWORD queued = 0;
    Ft().GetQueueStatus(streamChannel, &queued);
    return queued;
}

void AnalyzerLink::PurgeStream(ULONG mask) { Ft().Purge(streamChannel, mask); }

DWORD AnalyzerLink::ReadStreamBytes(void* out, DWORD count) {
    // A driver may hand over less than asked though the rest is on its way:
    // read on until the count is met or a read brings nothing (its time-out).
    auto* bytes = static_cast<uint8_t*>(out);
    DWORD total = 0;
    while (total < count) {
        DWORD received = 0;
        if (Ft().Read(streamChannel, bytes + total, count - total, &received) != FT_OK || received == 0) break;
        total += std::min(received, count - total);
    }
    return total;
}

bool AnalyzerLink::WaitForStream(DWORD bytes, uint32_t limitMs, uint32_t pollMs) {
    const uint32_t start = os::TickMs();
    for (;;) {
        if (StreamQueued() >= bytes) return true;
        if (Stopping()) return false;
        if (os::TickMs() - start > limitMs) return false;
        os::SleepMs(pollMs);
    }
}

void AnalyzerLink::DropStreamBytes(int64_t bytes) {
    while (bytes > 0) {
        const DWORD piece = static_cast<DWORD>(std::min<int64_t>(bytes, kStreamBytes));
        const DWORD received = ReadStreamBytes(workBuffer, piece);
        if (received == 0) return;  // the stream went silent: nothing more to drop
        bytes -= received;
    }
}

void AnalyzerLink::Widen(Ipp64fc* out, int samples) {
    // Little-endian 16-bit I, Q pairs, as the host keeps them.
    const auto* raw = reinterpret_cast<const Ipp16s*>(workBuffer);
    ippsConvert_16s64f_Sfs(raw, reinterpret_cast<Ipp64f*>(out), 2 * samples, 15);
    // A converter driven to its limits clips: a few values at the edge of the
    // range in one block mean the IF is overloaded and the levels read low.
    // Samples out of step by a byte are as far from the truth.
    int inside = 0;
    ippsCountInRange_16s(raw, 2 * samples, &inside, -kOverloadCode + 1, kOverloadCode - 1);
    const int atEdge = 2 * samples - inside;
    int large = 0, signBytes = 0;
    for (int i = 0; i < 2 * samples; i += kShiftedStride) {
        const int v = raw[i];
        const int low = v & 0xFF;
        const bool big = v >= kShiftedFrom || v <= -kShiftedFrom;
        large += big;
        signBytes += big && (low == 0 || low == 0xFF);
    }
    const bool shifted = large >= kShiftedValues && 2 * signBytes > large;
    if (atEdge < kOverloadValues && !shifted) return;
    clippedSince_ = true;
    if (countCompression_) compressionFlag = true;
}

AnalyzerLink::Capture AnalyzerLink::CaptureBlock(Ipp64fc* out, int count, int timeoutMs) {
    Command({'S', LowByte(count / kBlockSamples)});
    uint8_t sync[4] = {};
    if (WaitForStream(sizeof sync, kStreamReadLimitMs, 1)) ReadStreamBytes(sync, sizeof sync);
    if (std::memcmp(sync, kCaptureSync, sizeof sync) != 0) {
        PurgeStream(FT_PURGE_RX);
        return Capture::NoSync;
    }
    for (int done = 0; done < count;) {
        const int chunk = std::min(count - done, kStreamSamples);
        if (!WaitForStream(static_cast<DWORD>(4 * chunk), static_cast<uint32_t>(std::max(timeoutMs, 0)), 5)) {
            PurgeStream(FT_PURGE_RX);
            return Capture::TimedOut;
        }
        ReadStreamBytes(workBuffer, static_cast<DWORD>(4 * chunk));
        Widen(out + done, chunk);
        done += chunk;
    }
    return Capture::Complete;
}

bool AnalyzerLink::ReadSamples512(Ipp64fc* out) {
    if (!WaitForStream(kBlockBytes, 100, 1)) return false;
    ReadStreamBytes(workBuffer, kBlockBytes);
    Widen(out, kBlockSamples);
    return true;
}

bool AnalyzerLink::ReadSamples4096(Ipp64fc* out) {
    if (!WaitForStream(kStreamBytes, 275, 1)) {
        PurgeStream(FT_PURGE_RX);
        return false;
    }
    ReadStreamBytes(workBuffer, kStreamBytes);
    Widen(out, kStreamSamples);
    return true;
}

void AnalyzerLink::StartStream() {
    Command({'T'});
    if (WaitForStream(sizeof syncWord, kStreamReadLimitMs, 1)) ReadStreamBytes(syncWord, sizeof syncWord);
}

void AnalyzerLink::StopStream() {
    for (int stop = 0; stop < 3; ++stop) {
        Command({'3'});
        for (int drain = 0; drain < 5; ++drain) {
            os::SleepMs(12);
            const DWORD queued = StreamQueued();
            if (queued == 0) break;
            ReadStreamBytes(workBuffer, std::min<DWORD>(queued, kStreamBytes));
        }
    }
}

bool AnalyzerLink::DrainStream(uint32_t limitMs) {
    const uint32_t start = os::TickMs();
    bool drained = false;
    do {
        os::SleepMs(12);
        const DWORD queued = StreamQueued();
        if (queued == 0) break;
        drained = ReadStreamBytes(workBuffer, std::min<DWORD>(queued, kStreamBytes)) > 0 || drained;
    } while (os::TickMs() - start <= limitMs && !Stopping());
    return drained;
}

bool AnalyzerLink::StreamAnswers() {
    DWORD queued = 0;
    return Ft().GetQueueStatus(streamChannel, &queued) == FT_OK;
}

bool AnalyzerLink::CaptureStream(Ipp64fc* out, int count) {
    StartStream();
    bool complete = true;
    for (int i = 0; i < count / kStreamSamples && complete; ++i) {
        complete = ReadSamples4096(out + static_cast<size_t>(i) * kStreamSamples);
    }
    Command({'3'});
    os::SleepMs(10);
    os::SleepMs(25);
    StreamQueued();
    PurgeStream(FT_PURGE_RX);
    return complete;
}

AnalyzerLink::FrameRead AnalyzerLink::ReadFrame(Ipp64fc* out, int expectedSamples) {
    if (!std::exchange(headerAhead_, false)) {
        std::memset(syncWord, 0, sizeof syncWord);
        if (!WaitForStream(sizeof syncWord, kStreamReadLimitMs, 1)) return {FrameRead::Torn, -1};
        ReadStreamBytes(syncWord, sizeof syncWord);
    }
    if (!IsFrameHeader(syncWord) && (!ResyncFrames() || !IsFrameHeader(syncWord))) return {FrameRead::Torn, -1};

    const int tag = syncWord[2];
    const int blocks = (syncWord[3] + 1) * blocksPerStep;
    if (expectedSamples != kBlockSamples * blocks) {
        DropStreamBytes(static_cast<int64_t>(kBlockBytes) * blocks);
        return {FrameRead::OtherSize, tag};
    }
    for (int block = 0; block < blocks; ++block) {
        // A block that misses its limit leaves the frame torn; the next
        // call finds its place again through the header.
        if (Stopping()) return {FrameRead::Torn, tag};
        if (!ReadSamples512(out + static_cast<size_t>(block) * kBlockSamples)) return {FrameRead::Torn, tag};
    }
    return {FrameRead::Segment, tag};
}

bool AnalyzerLink::ReadHeaderAhead() {
    std::memset(syncWord, 0, sizeof syncWord);
    // Without a header the next ReadFrame searches the stream for one.
    headerAhead_ = true;
    if (WaitForStream(sizeof syncWord, kStreamReadLimitMs, 1)) ReadStreamBytes(syncWord, sizeof syncWord);
    return IsFrameHeader(syncWord);
}

bool AnalyzerLink::ResyncFrames() {
    for (int reads = 0; reads < kResyncReads; ++reads) {
        if (!WaitForStream(1, kStreamReadLimitMs, 1)) return false;  // silent, or stopping
        const DWORD received = ReadStreamBytes(workBuffer, kBlockBytes);
        if (received == 0) return false;  // the stream is silent: nothing to find
        for (DWORD offset = 0; offset + 1 < received; offset += 2) {
            if (!IsFrameHeader(workBuffer + offset)) continue;
            // The header may reach past this read: complete it from the stream.
            uint8_t header[4] = {};
            const DWORD inRead = std::min<DWORD>(4, received - offset);
            std::memcpy(header, workBuffer + offset, inRead);
            if (inRead < 4) ReadStreamBytes(header + inRead, 4 - inRead);
            const int64_t frameRead = static_cast<int64_t>(received) - offset - inRead;
            const int64_t frameBytes = static_cast<int64_t>(kBlockBytes) * (header[3] + 1) * blocksPerStep;
            DropStreamBytes(frameBytes - frameRead);
            std::memset(syncWord, 0, sizeof syncWord);
            ReadStreamBytes(syncWord, sizeof syncWord);
            return true;
        }
    }
    return false;
}

}  // namespace qor
