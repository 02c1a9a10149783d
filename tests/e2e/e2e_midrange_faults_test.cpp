// Faults on the stream of a running midrange sweep: headers lost, garbled or
// of the wrong size make the reader find its place again and the sweeps go
// on correct and without error.
#include "e2e_bench.h"

namespace {

using namespace e2e;

constexpr unsigned kSerial = 41000004;
const Tone kTone{1001.3e6, -25.0};  // on a bin of 200 kHz

TEST(MidrangeFaults, LostGarbledOrResizedHeadersResynchronise) {
    const std::string problem = LoadBench({{kSerial, 4, {kTone}, -130.0, true, 30.0}});
    if (!problem.empty()) GTEST_SKIP() << problem;
    struct Fault {
        const char* name;
        int (*inject)(unsigned serial);
    };
    const Fault faults[] = {
        {"lost headers", [](unsigned s) { return TheSim()->loseFrameHeaders(s, 3); }},
        // More than a whole frame: headers go, and samples with them.
        {"garbled headers", [](unsigned s) { return TheSim()->corruptStreamBytes(s, 1000, 1500000); }},
        {"frames of another size", [](unsigned s) { return TheSim()->wrongSizeFrames(s, 3); }},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        const int device = Open(kSerial);
        ASSERT_GE(device, 0);
        // With rejection 597 steps of one block: three segments, a frame of 1.2 MB.
        Sweep s = Between(951e6, 1049e6, 250e3);
        s.reject = true;
        Trace t = Start(device, s);
        ASSERT_EQ(qorNoError, t.initiate);
        ASSERT_EQ(qorNoError, Take(device, t));
        ASSERT_EQ(0, fault.inject(kSerial));
        // A few sweeps after the fault: all without error, the last one right.
        for (int k = 0; k < 4; ++k) ASSERT_EQ(qorNoError, Take(device, t)) << k;
        const int peak = t.PeakNear(kTone.frequency, t.binSize);
        ASSERT_GE(peak, 0);
        EXPECT_NEAR(t.FrequencyOf(peak), kTone.frequency, t.binSize);
        EXPECT_NEAR(t.max[peak], kTone.level, 1.0);
        qorCloseDevice(device);
    }
}

}  // namespace
