// Eight units driven by eight threads at once, each cycling through open,
// every engine its family has, gets, abort and close, beside a thread that
// lists the bus all the while; a ninth open while all eight are open is
// refused with -5. The thread sanitizer build runs it too: no race, no
// deadlock, no waiter left behind.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "e2e_modes.h"

namespace {

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
