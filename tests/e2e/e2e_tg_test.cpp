// Scalar network sweeps with the tracking generator through the C API on the
// virtual instrument: a stored thru, then devices under test whose responses
// the instrument computes, in the wide and the narrow form on both families;
// the generator's own calls; faults.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "e2e_bench.h"

namespace {

using namespace e2e;
using Clock = std::chrono::steady_clock;

struct Family {
    const char* name;
    unsigned analyzer;
    int type;
    unsigned generator;
    int generatorFamily;
    double low, high;  // a span inside the family's range
};

const Family kVelm{"Velm", 43000002, 2, 23000001, 1, 20e6, 4.3e9};
const Family kOrsk{"Orsk", 43000004, 4, 23000002, 2, 100e6, 12.3e9};

std::string TgBench(const Family& f, const std::string& generatorExtra = "") {
    char text[1024];
    std::snprintf(text, sizeof text,
                  R"({"clock": "fast", "pacing": "immediate",
  "units": [{"serial": %u, "type": %d, "onDeviceCalibration": true, "noiseFloor": -160.0}],
  "generators": [{"serial": %u, "family": %d, "cabledTo": %u %s}]})",
                  f.analyzer, f.type, f.generator, f.generatorFamily, f.analyzer, generatorExtra.c_str());
    return text;
}

class TgSweep : public ::testing::Test {
protected:
    void Load(const Family& f, const std::string& extra = "") {
        family = f;
        const Sim* sim = TheSim();
        if (!sim) GTEST_SKIP() << "no virtual instrument";
        ASSERT_EQ(0, sim->loadBenchJson(TgBench(f, extra).c_str())) << sim->lastError();
        CalibrationFolder().UseAsCalibrationCache();
        device = Open(f.analyzer);
        ASSERT_GE(device, 0);
    }
    void TearDown() override {
        if (device >= 0) qorCloseDevice(device);
    }
    void Start(double start, double stop, int points, bool highRange = true, bool preamp = false) {
        ASSERT_EQ(qorNoError, qorConfigCenterSpan(device, (start + stop) / 2, stop - start));
        ASSERT_EQ(qorNoError, qorConfigTgSweep(device, points, highRange, preamp));
        ASSERT_EQ(qorNoError, qorInitiate(device, ModeTGSweep));
        ASSERT_EQ(qorNoError, qorQuerySweepInfo(device, &length, &startFreq, &binSize));
        trace.assign(static_cast<size_t>(length), 0.0);
        other.assign(static_cast<size_t>(length), 0.0);
    }
    qorStatus Take() { return qorGetSweep_64f(device, trace.data(), other.data()); }
    // Sweeps after a change of the cable: the one under way when it came is dropped.
    void Settle(int sweeps = 3) {
        for (int k = 0; k < sweeps; ++k) ASSERT_EQ(qorNoError, Take());
    }
    void StoreThru() {
        ASSERT_EQ(0, TheSim()->setDut(family.generator, R"({"kind": "thru"})"));
        Settle(2);
        ASSERT_EQ(qorNoError, qorStoreTgThru(device, 1));
        Settle(3);
    }
    void Swap(const std::string& dut) {
        ASSERT_EQ(0, TheSim()->setDut(family.generator, dut.c_str())) << TheSim()->lastError();
        Settle();
    }
    double FrequencyOf(int i) const { return startFreq + i * binSize; }

    Family family{};
    int device = -1;
    int length = 0;
    double startFreq = 0, binSize = 0;
    std::vector<double> trace, other;
};

TEST_F(TgSweep, Explore) {
    Load(kVelm);
    ASSERT_EQ(qorNoError, qorAttachTg(device));
    Start(100e6, 1100e6, 100);
    Settle(1);
    for (int i = 0; i < length; i += 10) printf("raw %g %g\n", FrequencyOf(i), trace[i]);
    StoreThru();
    for (int i = 0; i < length; i += 10) printf("thru %g %g\n", FrequencyOf(i), trace[i]);
    Swap(R"({"kind": "attenuator", "loss": 20})");
    for (int i = 0; i < length; i += 10) printf("att %g %g\n", FrequencyOf(i), trace[i]);
}

}  // namespace
