#include "usb_device.h"

#include <algorithm>
#include <cstring>

#include "d2xx_types.h"

namespace qorsim {

namespace {
// Longest slice a waiting read sleeps before it looks at the unit again.
constexpr double kWaitSliceSeconds = 0.002;
}  // namespace

UsbDevice::UsbDevice(uint32_t serial, const Timing& timing, CommandLog& log)
    : serial_(serial), timing_(timing), log_(log) {}

bool UsbDevice::PluggedLocked(TimePoint now) const { return now < unplugAt_; }

bool UsbDevice::Present(TimePoint now) {
    std::lock_guard<std::mutex> lock(mutex_);
    return PluggedLocked(now) && now >= presentFrom_;
}

bool UsbDevice::ListedOpen(int channel) {
    std::lock_guard<std::mutex> lock(mutex_);
    return open_[channel] || (channel == 0 && heldElsewhere_);
}

bool UsbDevice::HeldElsewhere(int channel) {
    std::lock_guard<std::mutex> lock(mutex_);
    return channel == 0 && heldElsewhere_;
}

uint32_t UsbDevice::Open(int channel, TimePoint now, uint64_t* epoch) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!PluggedLocked(now) || now < presentFrom_) return FT_DEVICE_NOT_FOUND;
    if (open_[channel] || (channel == 0 && heldElsewhere_)) return FT_DEVICE_NOT_OPENED;
    open_[channel] = true;
    readTimeoutMs_[channel] = 1000;
    *epoch = epoch_;
    return FT_OK;
}

void UsbDevice::Close(int channel, uint64_t epoch) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (epoch == epoch_) open_[channel] = false;
}

bool UsbDevice::Alive(uint64_t epoch, TimePoint now) {
    std::lock_guard<std::mutex> lock(mutex_);
    return epoch == epoch_ && PluggedLocked(now);
}

uint32_t UsbDevice::Write(int channel, uint64_t epoch, const uint8_t* data, uint32_t count, uint32_t* written) {
    if (written) *written = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const TimePoint now = SteadyClock::now();
        if (epoch != epoch_ || !PluggedLocked(now)) return FT_IO_ERROR;
        OnWrite(channel, data, count, now);
        if (written) *written = count;
    }
    arrived_.notify_all();
    return FT_OK;
}

uint32_t UsbDevice::Read(int channel, uint64_t epoch, uint8_t* data, uint32_t count, uint32_t* read) {
    *read = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    TimePoint now = SteadyClock::now();
    if (epoch != epoch_ || !PluggedLocked(now)) return FT_IO_ERROR;
    const TimePoint timeoutAt = AfterSeconds(now, RealSecondsOf(readTimeoutMs_[channel], timing_.clockScale));
    size_t got = 0;
    for (;;) {
        if (epoch != epoch_ || !PluggedLocked(now)) return FT_IO_ERROR;
        const size_t queued = Pending(channel, now, count - got);
        size_t taken = std::min<size_t>(queued, count - got);
        const bool cut = taken > 1 && shortReadChance_[channel] > 0.0 &&
                         std::uniform_real_distribution<double>(0.0, 1.0)(shortReadDraw_) < shortReadChance_[channel];
        if (cut) taken = 1 + shortReadDraw_() % (taken - 1);
        got += Take(channel, data + got, taken);
        *read = static_cast<uint32_t>(got);
        if (got == count || cut) return FT_OK;
        // Data on its way is waited for even past the time-out: a read of a
        // running stream never comes back short. Nothing coming: the time-out.
        const TimePoint next = NextArrival(channel, now);
        if (next == TimePoint::max() && now >= timeoutAt) return FT_OK;
        TimePoint until = next == TimePoint::max() ? timeoutAt : next;
        until = std::min(until, AfterSeconds(now, kWaitSliceSeconds));
        arrived_.wait_until(lock, until);
        now = SteadyClock::now();
    }
}

void UsbDevice::SetShortReads(int channel, double chance) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (channel >= 0 && channel < kMaxChannels) shortReadChance_[channel] = chance;
}

uint32_t UsbDevice::QueueStatus(int channel, uint64_t epoch, uint32_t* queued) {
    std::lock_guard<std::mutex> lock(mutex_);
    const TimePoint now = SteadyClock::now();
    *queued = 0;
    if (epoch != epoch_ || !PluggedLocked(now)) return FT_IO_ERROR;
    *queued = static_cast<uint32_t>(Waiting(channel, now));
    return FT_OK;
}

uint32_t UsbDevice::Purge(int channel, uint64_t epoch, uint32_t mask) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (epoch != epoch_ || !PluggedLocked(SteadyClock::now())) return FT_IO_ERROR;
    OnPurge(channel, mask);
    return FT_OK;
}

uint32_t UsbDevice::SetTimeouts(int channel, uint64_t epoch, uint32_t readMs, uint32_t) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (epoch != epoch_ || !PluggedLocked(SteadyClock::now())) return FT_IO_ERROR;
    readTimeoutMs_[channel] = readMs;
    return FT_OK;
}

uint32_t UsbDevice::CyclePort(uint64_t epoch) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const TimePoint now = SteadyClock::now();
        if (epoch != epoch_ || !PluggedLocked(now)) return FT_IO_ERROR;
        // The whole chip leaves the bus and comes back as new: every handle is stale.
        ++epoch_;
        open_.fill(false);
        presentFrom_ = AfterSeconds(now, RealSecondsOf(kReenumerationMs, timing_.clockScale));
        OnPortCycle(now);
    }
    arrived_.notify_all();
    return FT_OK;
}

uint32_t UsbDevice::ReadUserArea(uint64_t epoch, uint8_t* data, uint32_t size, uint32_t* read) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (read) *read = 0;
    if (epoch != epoch_ || !PluggedLocked(SteadyClock::now())) return FT_IO_ERROR;
    const uint32_t n = std::min(size, kUserAreaSize);
    std::memcpy(data, userArea_.data(), n);
    if (read) *read = n;
    return FT_OK;
}

uint32_t UsbDevice::WriteUserArea(uint64_t epoch, const uint8_t* data, uint32_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (epoch != epoch_ || !PluggedLocked(SteadyClock::now())) return FT_IO_ERROR;
    if (size > kUserAreaSize) return FT_INVALID_PARAMETER;
    std::memcpy(userArea_.data(), data, size);
    return FT_OK;
}

void UsbDevice::Unplug(double afterRealMs) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        unplugAt_ = afterRealMs <= 0.0 ? SteadyClock::now() : AfterSeconds(SteadyClock::now(), afterRealMs * 1e-3);
    }
    arrived_.notify_all();
}

void UsbDevice::Replug() {
    std::lock_guard<std::mutex> lock(mutex_);
    const bool wasGone = !PluggedLocked(SteadyClock::now());
    unplugAt_ = TimePoint::max();
    if (!wasGone) return;
    ++epoch_;
    open_.fill(false);
    presentFrom_ = SteadyClock::now();
    OnPortCycle(presentFrom_);
}

void UsbDevice::SetHeldElsewhere(bool held) {
    std::lock_guard<std::mutex> lock(mutex_);
    heldElsewhere_ = held;
}

void UsbDevice::SetTiming(const Timing& timing) {
    std::lock_guard<std::mutex> lock(mutex_);
    timing_ = timing;
}

}  // namespace qorsim
