// Every engine through its life: a unit unplugged at any point, a mode left
// while another thread waits in it, an engine without memory, and eight units
// driven by eight threads at once. Waiters come back promptly with a status
// that says what happened, and nothing touches an engine after it is freed
// (the sanitizer builds run this suite too).
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e_modes.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr unsigned kVelmB = 61000002;
constexpr unsigned kOrskB = 61000004;

unsigned SerialFor(const e2e::ModeCase& mode) { return mode.type == 4 ? kOrskB : kVelmB; }

int ThreadCount() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) count += entry.exists();
    return count;
}

bool Listed(unsigned serial) {
    int serials[8] = {}, count = 0;
    qorGetSerialNumberList(serials, &count);
    return std::find(serials, serials + count, static_cast<int>(serial)) != serials + count;
}

enum class Point { FirstBlock, WhileWaiting, BetweenGets };

// A type 2 unit and a type 4 unit whose table comes from the cache.
class EngineLife : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string problem =
            e2e::LoadBench({{kVelmB, 2, {{1e9, -30.0}}}, {kOrskB, 4, {{1e9, -30.0}}, -160.0, false}});
        if (!problem.empty()) GTEST_SKIP() << problem;
    }
    void TearDown() override { e2e::CloseAll(); }
};

TEST_F(EngineLife, UnpluggedAtEveryPointOfAMeasurementInEveryEngine) {
    {
        // A first run starts whatever threads the runtime keeps for good (a
        // sanitizer's among them) before any count is taken.
        const int device = e2e::Open(kVelmB);
        ASSERT_GE(e2e::AllModes().front().start(device), 0);
        qorCloseDevice(device);
    }
    for (const e2e::ModeCase& engine : e2e::AllModes()) {
        const unsigned serial = SerialFor(engine);
        for (const Point point : {Point::FirstBlock, Point::WhileWaiting, Point::BetweenGets}) {
            SCOPED_TRACE(testing::Message() << engine.name << ", point " << static_cast<int>(point));
            const int threads = ThreadCount();
            const int device = e2e::Open(serial);
            ASSERT_GE(device, 0);
            ASSERT_GE(engine.start(device), 0);

            Clock::time_point unplugged;
            if (point == Point::BetweenGets) { ASSERT_GE(engine.get(device), 0); }
            if (point == Point::WhileWaiting) {
                // A caller already waits, or has its data, when the unit goes.
                std::thread waiter([&] { engine.get(device); });
                std::this_thread::sleep_for(20ms);
                unplugged = Clock::now();
                ASSERT_EQ(e2e::TheSim()->unplug(serial, 0.0), 0);
                waiter.join();
            } else {
                unplugged = Clock::now();
                ASSERT_EQ(e2e::TheSim()->unplug(serial, 0.0), 0);
            }
            // Data measured before the unplug may still come; the unit's
            // failure is told within a second and then for good.
            qorStatus status = qorNoError;
            if (point == Point::BetweenGets && std::string(engine.name) == "fast") {
                // A hopped sweep asked for after the unplug is no old one handed back.
                EXPECT_EQ(status = engine.get(device), qorUsbCommErr);
            }
            while (status >= 0 && Clock::now() - unplugged < 2s) status = engine.get(device);
            EXPECT_EQ(status, qorUsbCommErr);
            EXPECT_LT(Clock::now() - unplugged, 1s);
            EXPECT_EQ(engine.get(device), qorUsbCommErr);

            const Clock::time_point leaving = Clock::now();
            EXPECT_EQ(qorAbort(device), qorNoError);
            EXPECT_EQ(qorCloseDevice(device), qorNoError);
            EXPECT_LT(Clock::now() - leaving, 1s);
            EXPECT_FALSE(Listed(serial));
            EXPECT_EQ(ThreadCount(), threads) << "the engine's threads are gone";

            ASSERT_EQ(e2e::TheSim()->replug(serial), 0);
            const int again = e2e::Open(serial);
            EXPECT_GE(again, 0) << "the unit plugged back opens";
            qorCloseDevice(again);
        }
    }
}

// An unplug at any moment of the open, from the pairing of the channels to
// the calibration read: the open fails (or was done before it), nothing is
// cached that is not whole, and the unit plugged back opens and measures.
TEST_F(EngineLife, UnpluggedDuringTheOpenLeavesNothingHalfWritten) {
    for (const unsigned serial : {kVelmB, kOrskB}) {
        for (const double afterMs : {1.0, 20.0, 40.0, 50.0, 55.0, 65.0}) {
            SCOPED_TRACE(testing::Message() << serial << " unplugged after " << afterMs << " ms");
            std::filesystem::remove_all(e2e::CalibrationFolder().Path());
            std::filesystem::create_directories(e2e::CalibrationFolder().Path());
            if (serial == kOrskB) { ASSERT_TRUE(e2e::CalibrationFolder().CopyTableFile(serial)); }
            ASSERT_EQ(e2e::TheSim()->unplug(serial, afterMs), 0);
            int device = -1;
            const Clock::time_point opening = Clock::now();
            const qorStatus opened = qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial));
            EXPECT_TRUE(opened == qorNoError || opened == qorDeviceNotFoundErr || opened == qorUsbCommErr) << opened;
            EXPECT_LT(Clock::now() - opening, 5s);
            if (opened == qorNoError) qorCloseDevice(device);
            for (const auto& file : std::filesystem::directory_iterator(e2e::CalibrationFolder().Path())) {
                if (!file.is_regular_file()) continue;
                const auto size = std::filesystem::file_size(file.path());
                EXPECT_TRUE(size == 3128 || size == 458624 || size == 571616) << file.path() << " " << size;
            }

            ASSERT_EQ(e2e::TheSim()->replug(serial), 0);
            device = e2e::Open(serial);
            ASSERT_GE(device, 0);
            ASSERT_EQ(e2e::Initiate(device, e2e::Between(999e6, 1001e6, 10e3)), qorNoError);
            EXPECT_EQ(e2e::GetSweep(device), qorNoError);
            qorCloseDevice(device);
        }
    }
}

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
        int device = e2e::Open(serial);
        ASSERT_GE(device, 0);
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
        qorCloseDevice(device);
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
    const int device = e2e::Open(kVelmB);
    ASSERT_GE(device, 0);
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

// Each unit cycles through open, every engine its family has, gets, abort
// and close; a ninth open while all eight are open is refused with -5. The
// thread sanitizer build runs it too: no race, no deadlock, no waiter left behind.
constexpr int kUnits = 8;
constexpr unsigned kFirstSerial = 72000001;

unsigned SerialOf(int k) { return kFirstSerial + static_cast<unsigned>(k); }
int TypeOf(int k) { return k % 2 ? 4 : 2; }

std::vector<const e2e::ModeCase*> ModesOfType(int type) {
    std::vector<const e2e::ModeCase*> modes;
    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        if (mode.type == type) modes.push_back(&mode);
    }
    return modes;
}

TEST(EightDevices, CycleThroughEveryEngineAtOnce) {
    std::vector<e2e::BenchUnit> units;
    for (int k = 0; k < kUnits; ++k) units.push_back({SerialOf(k), TypeOf(k), {{1e9, -30.0}}});
    const std::string problem = e2e::LoadBench(units);
    if (!problem.empty()) GTEST_SKIP() << problem;
    // Fewer rounds where the sanitizers make every block cost ten times more.
    const int rounds = e2e::kAnySanitizer ? 4 : 20;

    std::atomic<int> open{0};
    std::atomic<bool> ninthTried{false}, done{false};
    std::atomic<int> failures{0}, listings{0};
    std::thread lister([&] {
        while (!done) {
            int serials[8], count = -1;
            if (qorGetSerialNumberList(serials, &count) != qorNoError || count < 0 || count > kUnits) ++failures;
            ++listings;
        }
    });
    std::vector<std::thread> drivers;
    for (int k = 0; k < kUnits; ++k) {
        drivers.emplace_back([&, k] {
            const std::vector<const e2e::ModeCase*> modes = ModesOfType(TypeOf(k));
            int device = -1;
            for (int round = 0; round < rounds; ++round) {
                if (device < 0) device = e2e::Open(SerialOf(k));
                if (device < 0) {
                    ++failures;
                    return;
                }
                if (round == 0) {
                    ++open;
                    while (!ninthTried) std::this_thread::yield();
                }
                const e2e::ModeCase& mode = *modes[static_cast<size_t>(round + k) % modes.size()];
                if (mode.start(device) < 0 || mode.get(device) < 0 || mode.get(device) < 0) {
                    ADD_FAILURE() << mode.name << " on unit " << k << ", round " << round;
                }
                if (round % 5 == 4) {
                    if (qorCloseDevice(device) != qorNoError) ++failures;
                    device = -1;
                } else if (qorAbort(device) != qorNoError) {
                    ++failures;
                }
            }
            if (device >= 0) qorCloseDevice(device);
        });
    }
    while (open < kUnits) std::this_thread::yield();
    int ninth = -1;
    EXPECT_EQ(qorOpenDeviceBySerialNumber(&ninth, static_cast<int>(SerialOf(0))), qorTooManyDevicesErr);
    ninthTried = true;
    for (std::thread& t : drivers) t.join();
    done = true;
    lister.join();
    EXPECT_EQ(failures, 0);
    EXPECT_GT(listings, 0);
}

}  // namespace
