// Leaving a mode while another thread waits in the engine, and four engines
// running at once beside a thread that lists the bus. The waiter must come
// back promptly with a status that says what happened, and nothing may touch
// an engine after it is freed: the sanitizer builds run this suite too.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "e2e_bench.h"

namespace {

using Clock = std::chrono::steady_clock;

struct EngineCase {
    const char* name;
    e2e::BenchUnit unit;
    e2e::Sweep sweep;
};

// Each engine on a sweep that takes long enough for a caller to find it under way.
std::vector<EngineCase> Engines() {
    return {
        {"slow", {41000001, 1, {{100.02e6, -30.0}}}, e2e::Between(100e6, 100.1e6, 300.0)},
        {"fast", {41000002, 2, {{500e6, -30.0}}}, e2e::Between(10e6, 1e9, 100e3)},
        {"midrange", {41000003, 3, {{1e9, -30.0}}, -160.0, false}, e2e::Between(995e6, 1005e6, 3e3)},
        {"broadband", {41000004, 4, {{1e9, -30.0}}}, e2e::Between(200e6, 4e9, 1e6)},
    };
}

std::vector<e2e::BenchUnit> UnitsOf(const std::vector<EngineCase>& cases) {
    std::vector<e2e::BenchUnit> units;
    for (const EngineCase& c : cases) units.push_back(c.unit);
    return units;
}

class EngineLife : public ::testing::Test {
protected:
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        ASSERT_EQ(e2e::OpenUnits(UnitsOf(Engines()), &devices_), "");
    }
    void TearDown() override { e2e::CloseAll(); }

    std::map<unsigned, int> devices_;
};

// A caller waits for a sweep while the mode is left from another thread, 50
// times for each engine: by abort, and every tenth time by closing the
// device. The waiter gets its sweep (0), learns that the mode is gone (-6)
// or that the device closed before it looked (-3), within 100 ms (a busy machine
// may hold a few of them back, never for a second).
TEST_F(EngineLife, LeavingTheModeWakesAWaitingCaller) {
    constexpr int kRounds = 50;
    for (const EngineCase& c : Engines()) {
        SCOPED_TRACE(c.name);
        int device = devices_.at(c.unit.serial);
        int woken = 0;
        int late = 0;  // back after 100 ms: a machine too busy to run the waiter at once
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_GE(e2e::Initiate(device, c.sweep), 0);
            int length = 0;
            double start = 0.0, bin = 0.0;
            ASSERT_EQ(qorQuerySweepInfo(device, &length, &start, &bin), qorNoError);
            std::vector<float> min(static_cast<std::size_t>(length)), max(min.size());
            std::atomic<qorStatus> status{qorNoError};
            std::atomic<Clock::rep> returnedAt{0};
            std::thread waiter([&] {
                status = qorGetSweep_32f(device, min.data(), max.data());
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
                device = e2e::Open(c.unit.serial);
                ASSERT_GE(device, 0);
            }
        }
        EXPECT_GT(woken, 0) << "no caller was ever waiting when the mode was left";
        EXPECT_LE(late, kRounds / 10) << "waiters back after 100 ms";
        devices_[c.unit.serial] = device;
    }
}

// Every engine on a device of its own at once, while another thread lists
// the bus again and again: each gets its sweeps whole.
TEST_F(EngineLife, FourEnginesAtOnceBesideAListing) {
    const std::vector<EngineCase> cases = Engines();
    std::atomic<bool> measuring{true};
    std::thread lister([&] {
        while (measuring) {
            int serials[8];
            int count = -1;
            EXPECT_EQ(qorGetSerialNumberList(serials, &count), qorNoError);
            EXPECT_EQ(count, 0) << "the open units are not free";
        }
    });
    std::vector<std::thread> sweepers;
    std::vector<qorStatus> results(cases.size(), qorUnknownErr);
    for (std::size_t k = 0; k < cases.size(); ++k) {
        sweepers.emplace_back([&, k] {
            const int device = devices_.at(cases[k].unit.serial);
            for (int sweep = 0; sweep < 3; ++sweep) {
                results[k] = e2e::Measure(device, cases[k].sweep).get;
                if (results[k] != qorNoError) return;
            }
        });
    }
    for (std::thread& t : sweepers) t.join();
    measuring = false;
    lister.join();
    for (std::size_t k = 0; k < cases.size(); ++k) EXPECT_EQ(results[k], qorNoError) << cases[k].name;
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
    const EngineCase slow = Engines().front();
    const int device = devices_.at(slow.unit.serial);
    // A video bandwidth of 1/100000 of the RBW: captures of some 10^7 samples.
    e2e::Sweep huge = slow.sweep;
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
    const e2e::Trace trace = e2e::Measure(device, slow.sweep);
    EXPECT_EQ(trace.get, qorNoError) << "and measures again";
}

}  // namespace
