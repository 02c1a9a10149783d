// Faults never pass as data: bytes lost from the stream do not leave the next
// mode out of step, and a sweep asked for after an unplug is no old one.
#include <gtest/gtest.h>

#include <vector>

#include "e2e_bench.h"

namespace {

constexpr unsigned kVelmB = 46000002;
constexpr double kTone = 500e6;
constexpr double kLevel = -30.0;

const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = {
        {kVelmB, 2, {{kTone, kLevel}}},
    };
    return units;
}

class FaultData : public e2e::SceneSuite<Scene> {};

// Three bytes dropped in the middle of a hopped sweep (the samples after them
// out of step): that mode may fail, but after a new initiate the tone reads
// right again, with status 0.
TEST_F(FaultData, DroppedBytesDoNotOutliveTheirMode) {
    const int device = devices_.at(kVelmB);
    const e2e::Sweep sweep = e2e::Between(400e6, 600e6, 100e3);
    ASSERT_GE(e2e::Initiate(device, sweep), 0);
    e2e::TheSim()->dropStreamBytes(kVelmB, 100000, 3);
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<double> min(static_cast<std::size_t>(length)), max(min.size());
    for (int k = 0; k < 3; ++k) {
        const qorStatus status = qorGetSweep_64f(device, min.data(), max.data());
        EXPECT_TRUE(status == qorNoError || status == qorCompression || status == qorUsbCommErr) << status;
    }
    qorAbort(device);
    const e2e::Trace trace = e2e::Measure(device, sweep, 2);
    ASSERT_EQ(trace.get, qorNoError);
    EXPECT_NEAR(trace.LevelNear(kTone, 200e3), kLevel, 0.5) << "the new mode's blocks are in step";
}

// A unit pulled out between two hopped sweeps: the next get does not hand
// back the sweep before as new, with status 0; it says -11.
TEST_F(FaultData, AfterAnUnplugThePreviousSweepIsNotHandedBack) {
    const int device = devices_.at(kVelmB);
    ASSERT_GE(e2e::Initiate(device, e2e::Between(400e6, 600e6, 100e3)), 0);
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<float> min(static_cast<std::size_t>(length)), max(min.size());
    for (int k = 0; k < 5; ++k) ASSERT_EQ(qorGetSweep_32f(device, min.data(), max.data()), qorNoError);
    e2e::TheSim()->unplug(kVelmB, 0.0);
    EXPECT_EQ(qorGetSweep_32f(device, min.data(), max.data()), qorUsbCommErr);
    EXPECT_EQ(qorCloseDevice(device), qorNoError);
    e2e::TheSim()->replug(kVelmB);
    devices_[kVelmB] = e2e::Open(kVelmB);
}

}  // namespace
