// One USB chip on the virtual bus: its channels as the driver lists them, the
// open marks, the user EEPROM area, plugging and re-enumeration. Analyzers
// (two channels) and generators (one) derive from it and answer the traffic.
//
// Locking: every member is guarded by `mutex_`; the bus calls in without its
// own lock held, so that a read that waits blocks only its own unit.
#ifndef QOR_SIM_USB_DEVICE_H
#define QOR_SIM_USB_DEVICE_H

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>

#include "sim_clock.h"

namespace qorsim {

class CommandLog;

struct Timing {
    double clockScale = 1.0; // instrument clock speed
    bool realtime = true;    // sample pacing
};

class UsbDevice {
public:
    UsbDevice(uint32_t serial, const Timing& timing, CommandLog& log);
    virtual ~UsbDevice() = default;
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    uint32_t Serial() const { return serial_; }
    virtual int ChannelCount() const = 0;
    virtual std::string Description(int channel) const = 0;
    virtual std::string SerialText(int channel) const = 0;
    virtual uint32_t ChipType() const = 0;

    // Listing and opening. `epoch` changes with every re-enumeration.
    bool Present(TimePoint now);
    bool ListedOpen(int channel);
    bool HeldElsewhere(int channel);
    // FT status of an open attempt; on success the channel is marked open and `epoch` tells the enumeration.
    uint32_t Open(int channel, TimePoint now, uint64_t* epoch);
    void Close(int channel, uint64_t epoch);
    // False once the unit has been unplugged or re-enumerated since the open of `epoch`.
    bool Alive(uint64_t epoch, TimePoint now);

    // Traffic; each returns an FT status.
    uint32_t Write(int channel, uint64_t epoch, const uint8_t* data, uint32_t count, uint32_t* written);
    uint32_t Read(int channel, uint64_t epoch, uint8_t* data, uint32_t count, uint32_t* read);
    uint32_t QueueStatus(int channel, uint64_t epoch, uint32_t* queued);
    uint32_t Purge(int channel, uint64_t epoch, uint32_t mask);
    uint32_t SetTimeouts(int channel, uint64_t epoch, uint32_t readMs, uint32_t writeMs);
    uint32_t CyclePort(uint64_t epoch);
    uint32_t ReadUserArea(uint64_t epoch, uint8_t* data, uint32_t size, uint32_t* read);
    uint32_t WriteUserArea(uint64_t epoch, const uint8_t* data, uint32_t size);

    // Faults and bench changes from the control API.
    virtual void Unplug(double afterRealMs);
    virtual void Replug();
    void SetHeldElsewhere(bool held);
    void SetTiming(const Timing& timing);
    // With this chance a read of the channel hands over only part of what is
    // asked, though more is queued, as a driver may (0: never).
    void SetShortReads(int channel, double chance);

protected:
    static constexpr int kMaxChannels = 2;
    static constexpr uint32_t kUserAreaSize = 32;
    static constexpr double kReenumerationMs = 1500.0; // instrument clock

    // Called with `mutex_` held.
    virtual void OnWrite(int channel, const uint8_t* data, uint32_t count, TimePoint now) = 0;
    // Moves what is due into the channel's receive queue (with immediate pacing
    // until `wanted` bytes wait, if the unit has them); returns the bytes queued.
    virtual size_t Pending(int channel, TimePoint now, size_t wanted) = 0;
    // What the queue status reports: the bytes queued, and with immediate pacing
    // also those the unit has ready to send.
    virtual size_t Waiting(int channel, TimePoint now) = 0;
    virtual size_t Take(int channel, uint8_t* out, size_t count) = 0;
    // When more data will be due if the host waits; max() if none is coming.
    virtual TimePoint NextArrival(int channel, TimePoint now) = 0;
    virtual void OnPurge(int channel, uint32_t mask) = 0;
    virtual void OnPortCycle(TimePoint now) = 0;

    bool PluggedLocked(TimePoint now) const;

    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    const uint32_t serial_;
    Timing timing_;
    CommandLog& log_;
    std::array<uint8_t, kUserAreaSize> userArea_{};

private:
    uint64_t epoch_ = 1;
    std::array<bool, kMaxChannels> open_{};
    bool heldElsewhere_ = false;
    TimePoint unplugAt_ = TimePoint::max();
    TimePoint presentFrom_{};
    std::array<uint32_t, kMaxChannels> readTimeoutMs_{{1000, 1000}};
    std::array<double, kMaxChannels> shortReadChance_{};
    std::minstd_rand shortReadDraw_{7};
};

}  // namespace qorsim

#endif
