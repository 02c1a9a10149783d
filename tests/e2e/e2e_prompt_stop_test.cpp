// Leaving a mode is prompt whatever the stream does: on a unit whose clock
// runs in real time (read limits of a second, as with hardware), abort
// returns within a second in every engine that reads samples, also while the
// stream stalls under a read and a caller waits; the wait on the silent
// stream uses under a tenth of a core.
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <thread>
#include <vector>

#include "e2e_bench.h"

namespace {

using Clock = std::chrono::steady_clock;

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}


constexpr unsigned kSerial = 45000002;

class PromptStop : public e2e::RealClockSuite<PromptStop> {
protected:
    static void SetUpTestSuite() {
        if (!e2e::kThreadSanitizer) device_ = e2e::OpenRealTimeUnit(kSerial, simbench::Cw(100.01e6, -30.0));
    }
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        // The slow sweep's transform of a second's capture, which a stop waits
        // for, takes seconds itself under the thread sanitizer.
        if (e2e::kThreadSanitizer) GTEST_SKIP() << "the engines' work needs a build without the thread sanitizer";
        ASSERT_GE(device_, 0);
    }
};

TEST_F(PromptStop, AbortReturnsWithinASecondOnAStalledStream) {
    const e2e::Sim* sim = e2e::TheSim();
    struct Mode {
        const char* engine;
        e2e::Sweep sweep;  // a span of 0: the I/Q stream
    };
    const Mode modes[] = {
        {"slow", e2e::Between(99.95e6, 100.05e6, 1.0)},  // captures of seconds
        {"midrange", e2e::Between(95e6, 105e6, 1e3)},
        {"fast", e2e::Between(50e6, 1.5e9, 100e3)},
        {"iq", e2e::Sweep{}},
    };
    for (const Mode& m : modes) {
        SCOPED_TRACE(m.engine);
        // In a sanitizer build the slow sweep's transform of its last capture,
        // which a stop waits for, alone outlasts the second.
        if (e2e::kAnySanitizer && m.sweep.rbw < 10.0) continue;
        if (m.sweep.span > 0.0 && m.sweep.center > 0.0) {
            ASSERT_GE(e2e::Initiate(device_, m.sweep), 0);
        } else {
            qorConfigCenterSpan(device_, 100e6, 100e3);
            ASSERT_EQ(qorInitiate(device_, ModeIQ), qorNoError);
        }
        std::thread waiter([] {
            std::vector<float> buffer(1 << 22);
            if (qorQuerySweepInfo(device_, nullptr, nullptr, nullptr) == qorNotConfiguredErr) {
                qorGetIQ(device_, buffer.data(), 1 << 20, 0);
            } else {
                int length = 0;
                double start = 0.0, bin = 0.0;
                qorQuerySweepInfo(device_, &length, &start, &bin);
                std::vector<float> max(static_cast<std::size_t>(std::max(length, 1)));
                qorGetSweep_32f(device_, buffer.data(), max.data());
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_EQ(sim->stallStream(kSerial, 1), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));  // a read under way on a silent stream
        // Waiting on the silent stream costs next to nothing: under a tenth of a core.
        const double cpuBefore = ProcessCpuSeconds();
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        const double cpu = ProcessCpuSeconds() - cpuBefore;
        if (!e2e::kAnySanitizer) {
            EXPECT_LT(cpu, 0.04);
        }
        const Clock::time_point leaving = Clock::now();
        EXPECT_EQ(qorAbort(device_), qorNoError);
        EXPECT_LT(Clock::now() - leaving, std::chrono::seconds(1));
        waiter.join();
        sim->stallStream(kSerial, 0);
    }
}

// A preset leaves the re-enumeration of the unit to the next open, which
// waits it out, instead of holding the caller for it.
TEST_F(PromptStop, PresetReturnsWithinASecondWhileMeasuring) {
    ASSERT_GE(e2e::Initiate(device_, e2e::Between(95e6, 105e6, 1e3)), 0);
    const Clock::time_point presetting = Clock::now();
    EXPECT_EQ(qorPreset(device_), qorNoError);
    EXPECT_LT(Clock::now() - presetting, std::chrono::seconds(1));
    EXPECT_EQ(qorCloseDevice(device_), qorDeviceNotOpenErr);
    device_ = -1;
}

}  // namespace
