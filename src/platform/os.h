// Operating system services of the library: sleeps and ticks, auto-reset
// events, engine threads and the wall clock.
//
// Sleeps and ticks run on one clock that a virtual instrument may speed up
// (SetClockScale): the fixed pauses of the device protocol then pass quickly
// while their order and ratios stay as they are. Event waits and the wall
// clock always run in real time.
#ifndef QOR_PLATFORM_OS_H
#define QOR_PLATFORM_OS_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace qor::os {

constexpr uint32_t kInfinite = 0xFFFFFFFFu;

// Speed of the sleep and tick clock relative to real time (1.0: real time).
void SetClockScale(double scale);
double ClockScale();

void SleepMs(uint32_t ms);
// Milliseconds of the (scaled) monotonic clock since an arbitrary origin.
uint32_t TickMs();

// Wall clock: whole seconds since 1970 (low 32 bits) and their milliseconds.
void WallClock(int32_t* seconds, int32_t* milliseconds);

// Auto-reset event: a Set releases one waiter and clears; a Set with no waiter
// stays pending; a second Set while one is pending is lost. Shut ends its
// use for good: it releases every waiter, and every later Wait returns at
// once, so that nobody stays asleep on an engine that is being stopped.
class AutoResetEvent {
public:
    void Set();
    void Shut();
    // True when the event was set (or is shut), false on time-out
    // (milliseconds, real time).
    bool Wait(uint32_t timeoutMs = kInfinite);

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    bool signalled_ = false;
    bool shut_ = false;
};

enum class Priority { Normal, TimeCritical };

// Starts a thread and asks for the priority; the request is best effort
// (an unprivileged process on Linux keeps the normal priority).
// Time-critical threads get the fair scheduler's strongest weight.
std::thread StartThread(std::function<void()> body, Priority priority);

}  // namespace qor::os

#endif
