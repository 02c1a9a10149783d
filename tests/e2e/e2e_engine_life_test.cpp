// Leaving a mode while another thread waits in the engine: the waiter must
// come back promptly with a status that says what happened, and nothing may
// touch an engine after it is freed (the sanitizer builds run this suite
// too); and an engine that cannot get its memory.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "e2e_modes.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kVelmB = 41000002;
constexpr unsigned kOrskB = 41000004;

unsigned SerialFor(const e2e::ModeCase& mode) { return mode.type == 4 ? kOrskB : kVelmB; }

class EngineLife : public ::testing::Test {
protected:
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        ASSERT_EQ(e2e::OpenUnits({{kVelmB, 2, {{1e9, -30.0}}}, {kOrskB, 4, {{1e9, -30.0}}}}, &devices_), "");
    }
    void TearDown() override { e2e::CloseAll(); }

    std::map<unsigned, int> devices_;
};

// A caller waits for data while the mode is left from another thread, 50
// times in each mode: by abort, and every tenth time by closing the device.
// The waiter gets its data (0), learns that the mode is gone (-6) or that
// the device closed before it looked (-3), within 100 ms (a busy machine may
// hold a few of them back, never for a second).
TEST_F(EngineLife, LeavingTheModeWakesAWaitingCaller) {
    constexpr int kRounds = 50;
    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        SCOPED_TRACE(mode.name);
        const unsigned serial = SerialFor(mode);
        int device = devices_.at(serial);
        int woken = 0;
        int late = 0;  // back after 100 ms: a machine too busy to run the waiter at once
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_GE(mode.start(device), 0);
            std::atomic<qorStatus> status{qorNoError};
            std::atomic<Clock::rep> returnedAt{0};
            std::thread waiter([&] {
                status = mode.get(device);
                returnedAt = Clock::now().time_since_epoch().count();
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(round % 3));
            const bool close = round % 10 == 9;
            const Clock::time_point leaving = Clock::now();
            EXPECT_EQ(close ? qorCloseDevice(device) : qorAbort(device), qorNoError);
            waiter.join();
            const auto waited = Clock::time_point(Clock::duration(returnedAt.load())) - leaving;
            EXPECT_LT(waited, std::chrono::seconds(1)) << "round " << round;
            late += waited >= std::chrono::milliseconds(100);
            const qorStatus got = status;
            EXPECT_TRUE(got == qorNoError || got == qorNotConfiguredErr || got == qorDeviceNotOpenErr)
                << "round " << round << ": " << got;
            woken += got == qorNotConfiguredErr;
            if (close) {
                device = e2e::Open(serial);
                ASSERT_GE(device, 0);
            }
        }
        EXPECT_GT(woken, 0) << "no caller was ever waiting when the mode was left";
        // The 100 ms are a matter of scheduling; a sanitizer's engine threads,
        // ten times slower, keep the cores busy: there only the second counts.
        if (!e2e::kAnySanitizer) {
            EXPECT_LE(late, kRounds / 10) << "waiters back after 100 ms";
        }
        devices_[serial] = device;
    }
}

// Bytes of address space the process holds now.
rlim_t AddressSpaceInUse() {
    std::ifstream statm("/proc/self/statm");
    rlim_t pages = 0;
    statm >> pages;
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// An engine that cannot get its memory: the call says -666, and the device
// is idle and usable, not half built.
TEST_F(EngineLife, AnEngineThatCannotGetItsMemoryLeavesTheDeviceIdle) {
    if (e2e::kAnySanitizer) GTEST_SKIP() << "the sanitizer holds the address space";
    const int device = devices_.at(kVelmB);
    // A video bandwidth of 1/100000 of the RBW: captures of some 10^7 samples.
    const e2e::Sweep slow = e2e::Between(999.9e6, 1000.1e6, 1e3);
    e2e::Sweep huge = slow;
    huge.rbw = 10e3;
    huge.vbw = 0.1;
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit tight = before;
    tight.rlim_cur = AddressSpaceInUse() + (64u << 20);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    const qorStatus status = e2e::Initiate(device, huge);
    setrlimit(RLIMIT_AS, &before);
    EXPECT_EQ(status, qorUnknownErr);
    int length = 0;
    double start = 0.0, bin = 0.0;
    EXPECT_EQ(qorQuerySweepInfo(device, &length, &start, &bin), qorNotConfiguredErr) << "the device is idle";
    const e2e::Trace trace = e2e::Measure(device, slow);
    EXPECT_EQ(trace.get, qorNoError) << "and measures again";
}

}  // namespace
