// The unit unplugged while the narrow sweep runs: the waiting retrieval
// returns -11 within a second, every later one at once, and abort and close
// come back promptly with the engine's thread joined.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "e2e_bench.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kVelmB = 52000002;

double MsSince(Clock::time_point t) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

class SlowUnplug : public ::testing::TestWithParam<double> {
protected:
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        // A fresh bench each time: an unplugged unit stays gone.
        ASSERT_EQ(e2e::LoadBench({{kVelmB, 2, {{1.0e9, -30.0}}}}), "");
        device_ = e2e::Open(kVelmB);
        ASSERT_GE(device_, 0);
        ASSERT_EQ(e2e::Initiate(device_, e2e::Between(1.0e9 - 2.5e3, 1.0e9 + 2.5e3, GetParam())), qorNoError);
        int length = 0;
        double start = 0.0, bin = 0.0;
        ASSERT_EQ(qorQuerySweepInfo(device_, &length, &start, &bin), qorNoError);
        min_.resize(static_cast<size_t>(length));
        max_.resize(static_cast<size_t>(length));
        ASSERT_EQ(qorGetSweep_64f(device_, min_.data(), max_.data()), qorNoError);
    }
    void TearDown() override {
        if (device_ >= 0) qorCloseDevice(device_);
    }

    int device_ = -1;
    std::vector<double> min_, max_;
};

// 1 kHz captures one block from the unit's memory, 10 Hz streams 2^18 samples.
INSTANTIATE_TEST_SUITE_P(Captures, SlowUnplug, ::testing::Values(1e3, 10.0),
                         [](const auto& info) { return info.param > 100.0 ? "Block" : "Stream"; });

TEST_P(SlowUnplug, WaitingRetrievalFailsWithinASecond) {
    std::atomic<bool> waiting{false};
    std::atomic<int> result{0};
    Clock::time_point failedAt;
    std::thread caller([&] {
        std::vector<float> min(min_.size()), max(max_.size());
        waiting = true;
        qorStatus status;
        do {
            status = qorGetSweep_32f(device_, min.data(), max.data());
        } while (status == qorNoError);
        failedAt = Clock::now();
        result = status;
    });
    while (!waiting) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const Clock::time_point unplugged = Clock::now();
    ASSERT_EQ(e2e::TheSim()->unplug(kVelmB, 0.0), 0);
    caller.join();
    EXPECT_EQ(result, qorUsbCommErr);
    const std::chrono::duration<double, std::milli> latency = failedAt - unplugged;
    EXPECT_LT(latency.count(), 1000.0);

    // The mark stays: every later retrieval fails at once.
    Clock::time_point t = Clock::now();
    EXPECT_EQ(qorGetSweep_64f(device_, min_.data(), max_.data()), qorUsbCommErr);
    int start = 0, stop = 0;
    EXPECT_EQ(qorGetPartialSweep_64f(device_, min_.data(), max_.data(), &start, &stop), qorUsbCommErr);
    EXPECT_LT(MsSince(t), 100.0);

    t = Clock::now();
    EXPECT_EQ(qorAbort(device_), qorNoError);
    EXPECT_LT(MsSince(t), 1000.0);
    t = Clock::now();
    EXPECT_EQ(qorCloseDevice(device_), qorNoError);
    EXPECT_LT(MsSince(t), 1000.0);
    device_ = -1;
}

// The last complete trace stays readable: the retrieval that reports the
// failure still hands out the trace measured before it.
TEST_P(SlowUnplug, LastTraceSurvivesTheFailure) {
    const std::vector<double> before = max_;
    ASSERT_EQ(e2e::TheSim()->unplug(kVelmB, 0.0), 0);
    const Clock::time_point t = Clock::now();
    qorStatus status;
    do {
        status = qorGetSweep_64f(device_, min_.data(), max_.data());
    } while (status == qorNoError && MsSince(t) < 2000.0);
    EXPECT_EQ(status, qorUsbCommErr);
    const int peak = static_cast<int>(std::max_element(before.begin(), before.end()) - before.begin());
    EXPECT_NEAR(max_[static_cast<size_t>(peak)], before[static_cast<size_t>(peak)], 0.5);
}

}  // namespace
