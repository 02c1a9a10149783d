// Faults on the stream of a running midrange sweep: headers lost, garbled or
// of the wrong size make the reader find its place again and the sweeps go
// on correct and without error.
#include "e2e_bench.h"

namespace {

using namespace e2e;

constexpr unsigned kSerial = 41000004;
const Tone kTone{1001.3e6, -25.0};  // on a bin of 200 kHz

class MidrangeFaults : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string problem = LoadBench({{kSerial, 4, {kTone}, -130.0, true, 30.0}});
        if (!problem.empty()) GTEST_SKIP() << problem;
        device = Open(kSerial);
        ASSERT_GE(device, 0);
        // With rejection 597 steps of one block: three segments, a frame of 1.2 MB.
        Sweep s = Between(951e6, 1049e6, 250e3);
        s.reject = true;
        Start(s);
        ASSERT_EQ(qorNoError, TakeSweep());
    }
    void TearDown() override {
        if (device >= 0) qorCloseDevice(device);
    }
    void Start(const Sweep& s) {
        ASSERT_EQ(qorNoError, Initiate(device, s));
        qorQuerySweepInfo(device, &trace.length, &trace.startFreq, &trace.binSize);
        trace.min.resize(static_cast<size_t>(trace.length));
        trace.max.resize(static_cast<size_t>(trace.length));
    }
    qorStatus TakeSweep() { return qorGetSweep_64f(device, trace.min.data(), trace.max.data()); }
    // A few sweeps after a fault: all without error, the last one right.
    void ExpectSweepsRecover() {
        for (int k = 0; k < 4; ++k) ASSERT_EQ(qorNoError, TakeSweep()) << "sweep " << k;
        const int peak = trace.PeakNear(kTone.frequency, trace.binSize);
        ASSERT_GE(peak, 0);
        EXPECT_NEAR(trace.FrequencyOf(peak), kTone.frequency, trace.binSize);
        EXPECT_NEAR(trace.max[peak], kTone.level, 1.0);
    }

    int device = -1;
    Trace trace;
};

TEST_F(MidrangeFaults, LostHeadersResynchronise) {
    ASSERT_EQ(0, TheSim()->loseFrameHeaders(kSerial, 3));
    ExpectSweepsRecover();
}

TEST_F(MidrangeFaults, GarbledHeadersResynchronise) {
    // More than a whole frame: headers go, and samples with them.
    ASSERT_EQ(0, TheSim()->corruptStreamBytes(kSerial, 1000, 1500000));
    ExpectSweepsRecover();
}

TEST_F(MidrangeFaults, FramesOfAnotherSizeAreDropped) {
    ASSERT_EQ(0, TheSim()->wrongSizeFrames(kSerial, 3));
    ExpectSweepsRecover();
}

}  // namespace
