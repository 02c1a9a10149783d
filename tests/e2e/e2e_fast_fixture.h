// What the hopped-sweep tests share: suites that open their units once, in
// the calibration folder of the run, and whole sweeps with the tones found
// in them.
#ifndef QOR_TESTS_E2E_FAST_FIXTURE_H
#define QOR_TESTS_E2E_FAST_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "e2e_bench.h"
#include "qor_api.h"

namespace fastsweep {

using e2e::Commands;
using e2e::Open;
using e2e::Payload;
using e2e::Sim;
using e2e::TheSim;
using e2e::Tone;
using e2e::Trace;

// A bench unit at 30 C with calibration on board and a scene of CW tones.
inline e2e::BenchUnit FastUnit(unsigned serial, int type, const std::vector<Tone>& tones) {
    return {serial, type, tones, -140.0, true, 30.0};
}

// Closes every unit when the suite ends.
class FastSweepSuite : public ::testing::Test {
protected:
    static void TearDownTestSuite() { e2e::CloseAll(); }

    // One whole sweep from `start` to `stop`.
    static Trace Sweep(int device, double start, double stop, double rbw, bool reject, int shape = 1) {
        e2e::Sweep s = e2e::Between(start, stop, rbw);
        s.reject = reject;
        s.shape = shape;
        const Trace t = e2e::Measure(device, s);
        EXPECT_EQ(qorNoError, t.initiate);
        EXPECT_EQ(qorNoError, t.get);
        return t;
    }
};

// A type 2 and a type 4 unit with their scenes, opened once per suite.
class FastSweepPairSuite : public FastSweepSuite {
protected:
    static void OpenPair(unsigned velmSerial, const std::vector<Tone>& velmTones, unsigned orskSerial,
                         const std::vector<Tone>& orskTones) {
        if (!TheSim()) return;
        ASSERT_EQ("", e2e::LoadBench({FastUnit(velmSerial, 2, velmTones), FastUnit(orskSerial, 4, orskTones)}));
        velm = Open(velmSerial);
        orsk = Open(orskSerial);
    }
    void SetUp() override {
        if (!TheSim()) GTEST_SKIP() << "the virtual instrument is not loaded (QOR_D2XX_LIBRARY)";
        ASSERT_GE(velm, 0);
        ASSERT_GE(orsk, 0);
    }

    static inline int velm = -1, orsk = -1;
};

// Every tone that lies in the trace within one bin and `tolerance` dB of its level.
inline void ExpectTones(const Trace& t, const std::vector<Tone>& tones, double tolerance = 0.5) {
    e2e::ExpectTones(t, tones, tolerance, std::min(20 * t.binSize, 300e3));
}

}  // namespace fastsweep

#endif
