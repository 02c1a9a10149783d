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
    e2e::Trace t = e2e::Start(device, sweep);
    ASSERT_GE(t.initiate, 0);
    e2e::TheSim()->dropStreamBytes(kVelmB, 100000, 3);
    for (int k = 0; k < 3; ++k) {
        const qorStatus status = e2e::Take(device, t);
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
    e2e::Trace t = e2e::Start(device, e2e::Between(400e6, 600e6, 100e3));
    ASSERT_GE(t.initiate, 0);
    for (int k = 0; k < 5; ++k) ASSERT_EQ(e2e::Take(device, t), qorNoError);
    e2e::TheSim()->unplug(kVelmB, 0.0);
    EXPECT_EQ(e2e::Take(device, t), qorUsbCommErr);
    EXPECT_EQ(qorCloseDevice(device), qorNoError);
    e2e::TheSim()->replug(kVelmB);
    devices_[kVelmB] = e2e::Open(kVelmB);
}

}  // namespace
