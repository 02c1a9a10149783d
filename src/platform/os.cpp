#include "os.h"

#include <atomic>
#include <chrono>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qor::os {
namespace {

std::atomic<double> clockScale{1.0};

constexpr int kTimeCriticalNice = -20;

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

void AutoResetEvent::Shut() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        shut_ = true;
    }
    cv_.notify_all();
}

bool AutoResetEvent::Wait(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex_);
    auto isSet = [this] { return signalled_ || shut_; };
    if (timeoutMs == kInfinite) {
        cv_.wait(lock, isSet);
    } else if (!cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), isSet)) {
        return false;
    }
    signalled_ = false;
    return true;
}

std::thread StartThread(std::function<void()> body, Priority priority) {
    return std::thread([body = std::move(body), priority] {
        if (priority == Priority::TimeCritical) {
            // The strongest weight of the fair scheduler, not a real-time
            // class: a reader that never blocks (a unit that always has data)
            // must not starve its partner thread or the machine. Refused
            // without the privilege; the thread then keeps the normal weight.
            (void)setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kTimeCriticalNice);
        }
        body();
    });
}

}  // namespace qor::os
