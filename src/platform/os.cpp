#include "os.h"

#include <atomic>
#include <chrono>
#include <pthread.h>
#include <sched.h>

namespace qor::os {
namespace {

std::atomic<double> clockScale{1.0};

using Steady = std::chrono::steady_clock;
const Steady::time_point origin = Steady::now();

}  // namespace

void SetClockScale(double scale) { clockScale.store(scale > 0.0 ? scale : 1.0); }

double ClockScale() { return clockScale.load(); }

void SleepMs(uint32_t ms) {
    if (ms == 0) {
        std::this_thread::yield();
        return;
    }
    const double realMicroseconds = 1000.0 * ms / ClockScale();
    std::this_thread::sleep_for(std::chrono::microseconds(static_cast<int64_t>(realMicroseconds)));
}

uint32_t TickMs() {
    const double elapsed = std::chrono::duration<double, std::milli>(Steady::now() - origin).count();
    return static_cast<uint32_t>(static_cast<uint64_t>(elapsed * ClockScale()));
}

void WallClock(int32_t* seconds, int32_t* milliseconds) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    if (seconds) *seconds = static_cast<int32_t>(static_cast<uint32_t>(ms / 1000));
    if (milliseconds) *milliseconds = static_cast<int32_t>(ms % 1000);
}

void AutoResetEvent::Set() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        signalled_ = true;
    }
    cv_.notify_one();
}

bool AutoResetEvent::Wait(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto isSet = [this] { return signalled_; };
    if (timeoutMs == kInfinite) {
        cv_.wait(lock, isSet);
    } else if (!cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet)) {
        return false;
    }
    signalled_ = false;
    return true;
}

std::thread StartThread(std::function<void()> body, Priority priority) {
    std::thread thread(std::move(body));
    if (priority == Priority::TimeCritical) {
        sched_param param{};
        param.sched_priority = sched_get_priority_max(SCHED_FIFO);
        // Refused without the privilege; the thread then runs at normal priority.
        (void)pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &param);
    }
    return thread;
}

}  // namespace qor::os
