// How a hopped sweep reaches the caller and the unit: partial results that
// grow step by step, and the hop windows with the clock trim of the 12.4 GHz
// B unit.
#include "e2e_fast_fixture.h"

namespace {

using namespace fastsweep;

constexpr unsigned kVelmB = 40000002, kOrskB = 40000004;
constexpr int kBinsPerStep = 105;  // at 6.5 kHz

// A sweep's grid and its traces in the narrow form.
struct Grid {
    int length = 0;
    double startFreq = 0.0, binSize = 0.0;
    std::vector<float> min, max;
};

class FastSweepDelivery : public FastSweepSuite {
protected:
    static void SetUpTestSuite() {
        if (!TheSim()) return;
        const std::vector<Tone> tones = {{150.1e6, -30}, {7030.0e6, -30}};
        ASSERT_EQ("", e2e::LoadBench({FastUnit(kVelmB, 2, tones), FastUnit(kOrskB, 4, tones)}));
    }
    void SetUp() override {
        sim = TheSim();
        if (!sim) GTEST_SKIP() << "the virtual instrument is not loaded (QOR_D2XX_LIBRARY)";
    }
    // Configures and starts a sweep without fetching it; `t` gets its grid and room for its traces.
    static void Start(int device, double start, double stop, double rbw, Grid* t) {
        ASSERT_EQ(qorNoError, e2e::Initiate(device, e2e::Between(start, stop, rbw)));
        ASSERT_EQ(qorNoError, qorQuerySweepInfo(device, &t->length, &t->startFreq, &t->binSize));
        t->min.resize(t->length);
        t->max.resize(t->length);
    }

    const Sim* sim = nullptr;
};

TEST_F(FastSweepDelivery, PartialSweepsGrowStepByStep) {
    const int device = Open(kVelmB);
    ASSERT_GE(device, 0);
    Grid t;
    Start(device, 100e6, 200e6, 6500.0, &t);
    const int length = t.length;
    ASSERT_EQ(length, 52500);
    const std::vector<float>& max = t.max;

    // First sweep: each call reports what is new since the last one, on the
    // step grid; beyond it the trace is not measured yet.
    int delivered = 0, calls = 0, gridStop = -1;
    while (delivered < length) {
        int start = -1, stop = -1;
        ASSERT_EQ(qorNoError, qorGetPartialSweep_32f(device, t.min.data(), t.max.data(), &start, &stop));
        ASSERT_LT(++calls, 1000);
        if (stop == delivered) continue;  // woken with nothing new
        EXPECT_EQ(start, delivered);
        ASSERT_GT(stop, delivered);
        ASSERT_LE(stop, length);
        if (stop < length) {
            if (gridStop < 0) gridStop = stop;
            EXPECT_EQ((stop - gridStop) % kBinsPerStep, 0) << stop;
        }
        EXPECT_GT(max[stop - 1], -200.0f);
        for (int i = stop; i < length; ++i) ASSERT_EQ(max[i], -200.0f) << i;
        delivered = stop;
    }

    // The next calls ask for a new sweep: its first news start again from
    // bin 0, and beyond them the trace still holds the last sweep. (The wide
    // form reports an old position with nothing new.)
    int start = -1, stop = -1;
    EXPECT_EQ(qorNullPtrErr, qorGetPartialSweep_64f(device, nullptr, nullptr, &start, &stop));
    std::vector<double> min64(length), max64(length);
    for (int call = 0; call < 10 && start == stop; ++call) {
        ASSERT_EQ(qorNoError, qorGetPartialSweep_64f(device, min64.data(), max64.data(), &start, &stop));
    }
    EXPECT_EQ(start, 0);
    for (int i = stop; i < length; ++i) ASSERT_GT(max64[i], -200.0) << i;
    EXPECT_EQ(qorNoError, qorGetSweep_64f(device, min64.data(), max64.data()));
    qorCloseDevice(device);
}

// One window a segment of 107 steps, tiling the steps; on the 12.4 GHz B unit
// above LO index 20000 each window comes with the clock trim of its segment.
TEST_F(FastSweepDelivery, HopWindowsAndClockTrim) {
    const int device = Open(kOrskB);
    ASSERT_GE(device, 0);
    sim->clearCommandLog(kOrskB);
    Grid t;
    Start(device, 7000e6, 7100e6, 6500.0, &t);
    ASSERT_EQ(qorNoError, qorGetSweep_32f(device, t.min.data(), t.max.data()));
    ASSERT_EQ(qorNoError, qorAbort(device));

    std::vector<std::vector<unsigned char>> windows;
    int trim = -1;
    int trimsBeforeWindows = 0;
    for (const auto& c : Commands(kOrskB)) {
        if (c[0] == 'Z' && c.size() == 3 && c[1] == '3') trim = c[2];
        if (c[0] != 'N' || c.size() != 5) continue;
        const int first = c[1] | c[2] << 8;
        EXPECT_EQ(trim, (first / 107) % 2 == 0 ? 3 : 0) << first;
        ++trimsBeforeWindows;
        windows.push_back(c);
    }
    // 100 MHz in 5 segments of 21.4 MHz. A caller that comes late may have
    // asked for a second sweep that the abort cut short.
    ASSERT_GE(windows.size(), 5u);
    EXPECT_EQ(trimsBeforeWindows, static_cast<int>(windows.size()));
    const int stepStart = static_cast<int>((7000e6 + 10.76e6) / 200000.0);
    int next = stepStart;
    for (size_t k = 0; k < 5; ++k) {
        const auto& w = windows[k];
        const int first = w[1] | w[2] << 8, last = w[3] | w[4] << 8;
        EXPECT_EQ(first, next);
        EXPECT_LE(last - first + 1, 107);
        next = last + 1;
    }
    // Leaving the mode returns the trim to 0.
    EXPECT_EQ(trim, 0);
    qorCloseDevice(device);
}

}  // namespace
