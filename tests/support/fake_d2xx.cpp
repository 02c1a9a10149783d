#include "fake_d2xx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace qor::test {
namespace {

FakeBus* current = nullptr;

FakeBus::Channel* ChannelOf(FT_HANDLE handle) { return static_cast<FakeBus::Channel*>(handle); }

std::string NameOf(FT_HANDLE handle) {
    const auto* channel = ChannelOf(handle);
    return channel ? channel->serial + channel->description.substr(channel->description.size() - 1) : "null";
}

// Records a setup, open, close, purge or cycle call on `handle`.
FT_STATUS Log(const char* call, FT_HANDLE handle, const std::string& arguments = "") {
    current->calls.push_back(call + (" " + NameOf(handle)) + arguments);
    return FT_OK;
}

}  // namespace

std::string Hex(const Bytes& bytes) {
    std::string text;
    char piece[4];
    for (const uint8_t b : bytes) {
        std::snprintf(piece, sizeof piece, "%02X ", b);
        text += piece;
    }
    return text;
}

// The D2XX entries, working on the current bus.
struct FakeEntries {
    static FT_STATUS CreateDeviceInfoList(DWORD* count) {
        *count = static_cast<DWORD>(current->channels.size());
        return FT_OK;
    }
    static FT_STATUS GetDeviceInfoDetail(DWORD index, DWORD* flags, DWORD*, DWORD*, DWORD*, void* serial,
                                         void* description, FT_HANDLE*) {
        if (index >= current->channels.size()) return FT_DEVICE_NOT_FOUND;
        const auto& channel = current->channels[index];
        *flags = channel.flags;
        std::strncpy(static_cast<char*>(serial), channel.serial.c_str(), FT_SERIAL_SIZE - 1);
        std::strncpy(static_cast<char*>(description), channel.description.c_str(), FT_DESCRIPTION_SIZE - 1);
        return FT_OK;
    }
    static FT_STATUS Open(int index, FT_HANDLE* handle) {
        current->calls.push_back("Open " + std::to_string(index));
        if (index < 0 || static_cast<size_t>(index) >= current->channels.size()) return FT_DEVICE_NOT_FOUND;
        auto& channel = current->channels[index];
        if (channel.failOpens > 0) {
            --channel.failOpens;
            return FT_DEVICE_NOT_OPENED;
        }
        channel.open = true;
        *handle = &channel;
        return FT_OK;
    }
    static FT_STATUS Close(FT_HANDLE handle) {
        ChannelOf(handle)->open = false;
        return Log("Close", handle);
    }
    static FT_STATUS SetBaudRate(FT_HANDLE h, ULONG baud) { return Log("Baud", h, " " + std::to_string(baud)); }
    static FT_STATUS SetTimeouts(FT_HANDLE handle, ULONG read, ULONG write) {
        return Log("Timeouts", handle, " " + std::to_string(read) + " " + std::to_string(write));
    }
    static FT_STATUS SetLatencyTimer(FT_HANDLE handle, UCHAR ms) {
        return Log("Latency", handle, " " + std::to_string(ms));
    }
    static FT_STATUS Write(FT_HANDLE handle, void* buffer, DWORD count, DWORD* written) {
        const auto* bytes = static_cast<const uint8_t*>(buffer);
        const Bytes frame(bytes, bytes + count);
        current->writes.push_back(frame);
        *written = count;
        if (!current->scripted_) return FT_OK;
        if (current->script_.empty()) {
            ADD_FAILURE() << "unexpected frame " << Hex(frame);
            return FT_OK;
        }
        const FakeBus::Exchange next = current->script_.front();
        current->script_.pop_front();
        EXPECT_EQ(Hex(next.wire), Hex(frame));
        auto* channel = ChannelOf(handle);
        channel->rx.insert(channel->rx.end(), next.reply.begin(), next.reply.end());
        auto& stream = current->StreamOf(channel->serial).rx;
        stream.insert(stream.end(), next.stream.begin(), next.stream.end());
        return FT_OK;
    }
    static FT_STATUS Read(FT_HANDLE handle, void* buffer, DWORD count, DWORD* read) {
        auto& rx = ChannelOf(handle)->rx;
        const DWORD n = std::min<DWORD>(count, static_cast<DWORD>(rx.size()));
        std::copy_n(rx.begin(), n, static_cast<uint8_t*>(buffer));
        rx.erase(rx.begin(), rx.begin() + n);
        *read = n;
        return FT_OK;
    }
    static FT_STATUS GetQueueStatus(FT_HANDLE handle, DWORD* queued) {
        auto* channel = ChannelOf(handle);
        const bool hidden = channel->hiddenPolls > 0;
        channel->hiddenPolls -= hidden;
        *queued = hidden ? 0 : static_cast<DWORD>(channel->rx.size());
        return FT_OK;
    }
    static FT_STATUS Purge(FT_HANDLE handle, ULONG mask) {
        if (mask & FT_PURGE_RX) ChannelOf(handle)->rx.clear();
        return Log("Purge", handle, " " + std::to_string(mask));
    }
    static FT_STATUS GetDeviceInfo(FT_HANDLE handle, FT_DEVICE*, DWORD*, char* serial, char*, void*) {
        std::strncpy(serial, ChannelOf(handle)->serial.c_str(), FT_SERIAL_SIZE - 1);
        return FT_OK;
    }
    static FT_STATUS CyclePort(FT_HANDLE handle) { return Log("Cycle", handle); }
    static FT_STATUS UARead(FT_HANDLE, UCHAR* data, DWORD size, DWORD* read) {
        *read = std::min<DWORD>(size, current->userAreaCount);
        std::memcpy(data, current->userArea, *read);
        return FT_OK;
    }
    static FT_STATUS UAWrite(FT_HANDLE, UCHAR* data, DWORD size) {
        std::memcpy(current->userArea, data, std::min<DWORD>(size, 16));
        return FT_OK;
    }
};

FakeBus::FakeBus() { current = this; }

FakeBus::~FakeBus() {
    EXPECT_TRUE(script_.empty()) << script_.size() << " expected frames never came, next " << Hex(script_.front().wire);
    current = nullptr;
}

const d2xx::Table& FakeBus::Table() {
    static const d2xx::Table table = {
        FakeEntries::CreateDeviceInfoList, FakeEntries::GetDeviceInfoDetail, FakeEntries::Open,
        FakeEntries::Close,                FakeEntries::SetBaudRate,         FakeEntries::SetTimeouts,
        FakeEntries::SetLatencyTimer,      FakeEntries::Write,               FakeEntries::Read,
        FakeEntries::GetQueueStatus,       FakeEntries::Purge,               FakeEntries::GetDeviceInfo,
        FakeEntries::CyclePort,            FakeEntries::UARead,              FakeEntries::UAWrite,
    };
    return table;
}

FakeBus::Channel& FakeBus::AddChannel(const std::string& serial, const std::string& description, DWORD flags) {
    Channel& channel = channels.emplace_back();
    channel.serial = serial;
    channel.description = description;
    channel.flags = flags;
    return channel;
}

void FakeBus::AddUnit(const std::string& serial, DWORD streamFlags) {
    AddChannel(serial, "Tarven Works A", streamFlags);
    AddChannel(serial, "Tarven Works B");
}

FakeBus::Channel& FakeBus::ChannelOf(const std::string& serial, const char* description) {
    for (auto& channel : channels)
        if (channel.serial == serial && channel.description == description) return channel;
    throw std::runtime_error(std::string("no ") + description + " channel for " + serial);
}

void FakeBus::Expect(Bytes wire, Bytes reply, Bytes stream) {
    scripted_ = true;
    script_.push_back({std::move(wire), std::move(reply), std::move(stream)});
}

}  // namespace qor::test
