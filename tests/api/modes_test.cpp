// What each retrieval and query does in each mode, with a stand-in engine
// that counts how it is asked.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "device_slot.h"
#include "qor_api.h"

namespace {

// An engine on the real result exchange whose thread, on each request,
// writes the trace in two halves at -30 dBm, signalling after each.
class HalvesEngine : public qor::SweepEngine {
public:
    explicit HalvesEngine(int length, bool logScale = true) {
        exchange.Configure(qor::kRequestedBinByBin, length, logScale);
        StartThread([this, length] {
            while (running && exchange.AwaitRequest()) {
                ++requests;
                for (int half : {length / 2, length}) {
                    exchange.WriteTraces([&](double* min, double* max) {
                        std::fill_n(min, half, -30.0);
                        std::fill_n(max, half, -30.0);
                    }, half);
                    exchange.Signal();
                }
                exchange.FinishSweep();
            }
        });
    }
    ~HalvesEngine() override { Stop(); }
    std::atomic<int> requests{0};
};

class Modes : public ::testing::Test {
protected:
    OpenSlot slot{1};
    std::shared_ptr<HalvesEngine> Run(int mode, int length) {
        auto engine = std::make_shared<HalvesEngine>(length);
        slot.device().Install(mode, engine);
        return engine;
    }
};

TEST_F(Modes, WholeSweepRepeatsPartialCallsUntilTheTraceStands) {
    auto engine = Run(ModeSweep, 10);
    std::vector<float> min(10, 0.0f), max(10, 0.0f);
    EXPECT_EQ(qorGetSweep_32f(1, min.data(), max.data()), qorNoError);
    EXPECT_EQ(engine->requests, 1);
    EXPECT_FLOAT_EQ(max[9], -30.0f);
    EXPECT_FLOAT_EQ(min[0], -30.0f);

    engine = Run(ModeSweep, 0);
    double dmin = 1.0, dmax = 1.0;
    EXPECT_EQ(qorGetSweep_64f(1, &dmin, &dmax), qorNoError);
    EXPECT_EQ(engine->requests, 0) << "an empty sweep asks nothing";
    EXPECT_EQ(dmin, 1.0);
}

TEST_F(Modes, LinearScaleConvertsTheWholeTraceToMillivolts) {
    slot.device().Install(ModeSweep, std::make_shared<HalvesEngine>(4, false));
    std::vector<float> fmin(4), fmax(4);
    EXPECT_EQ(qorGetSweep_32f(1, fmin.data(), fmax.data()), qorNoError);
    // -30 dBm in 50 ohm is 7.07 mV.
    EXPECT_NEAR(fmin[0], 7.0711f, 1e-3f);
    // A partial delivery converts the whole trace, new bins or not.
    std::vector<double> min(4), max(4);
    int start = 0, stop = 0;
    EXPECT_EQ(qorGetPartialSweep_64f(1, min.data(), max.data(), &start, &stop), qorNoError);
    EXPECT_NEAR(max[3], 7.0711, 1e-3);
}

// Whole sweeps, audio and streams in other modes: in the end-to-end tests.
TEST_F(Modes, RetrievalsOfOtherModesAreRefused) {
    Run(ModeIQ, 8);
    float f[64] = {};
    int start, stop;
    EXPECT_EQ(qorGetPartialSweep_32f(1, f, f, &start, &stop), qorNoError);  // reaches the engine
    EXPECT_EQ(qorGetRealTimeFrame(1, nullptr, nullptr, nullptr), qorWrongModeErr);
    EXPECT_EQ(qorQueryRealTimePoi(1, reinterpret_cast<double*>(f)), qorNotConfiguredErr);
    EXPECT_EQ(qorQueryDiagnostics(1, f), qorDeviceActiveErr);
    int length = 0;
    double bandwidth = 0, rate = 0;
    slot.device().m_settings.iqDecimationLog2 = 3;
    EXPECT_EQ(qorQueryStreamInfo(1, &length, &bandwidth, &rate), qorNoError);
    EXPECT_EQ(length, 2048);
    EXPECT_DOUBLE_EQ(rate, 60763.88888888889);
    EXPECT_EQ(qorQueryStreamInfo(1, nullptr, nullptr, nullptr), qorNoError);
    // The temperature during a measurement is the one remembered, not asked of the unit.
    slot.device().m_temperature = 31.5f;
    float t = 0;
    EXPECT_EQ(qorQueryTemperature(1, &t), qorNoError);
    EXPECT_FLOAT_EQ(t, 31.5f);
}

TEST_F(Modes, ModeWithoutEngineIsAnUnknownError) {
    slot.device().Install(ModeSweep, nullptr);
    float f[4];
    int start, stop;
    EXPECT_EQ(qorGetSweep_32f(1, f, f), qorUnknownErr);
    EXPECT_EQ(qorGetPartialSweep_32f(1, f, f, &start, &stop), qorUnknownErr);
}

TEST_F(Modes, InitiateAbortsCopiesAndDispatches) {
    Run(ModeSweep, 4);
    slot.entry().rbw = 1234.0;
    EXPECT_EQ(qorInitiate(1, ModeIdle), qorNoError);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
    EXPECT_EQ(slot.device().Current().engine, nullptr);
    EXPECT_EQ(slot.device().m_settings.rbw, 1234.0);

    Run(ModeSweep, 4);
    EXPECT_EQ(qorInitiate(1, 5), qorInvalidParameterErr);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
    EXPECT_EQ(slot.device().Current().engine, nullptr);

    ASSERT_EQ(qorConfigCenterSpan(1, 1e9, 500.0), qorNoError);
    EXPECT_EQ(qorInitiate(1, ModeRealTime), qorInvalidParameterErr);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
}

TEST(Lifecycle, CallsWithoutADevice) {
    EXPECT_EQ(qorGetSerialNumberList(nullptr, nullptr), qorNullPtrErr);
    int serials[8];
    EXPECT_EQ(qorGetSerialNumberList(serials, nullptr), qorNullPtrErr);
    EXPECT_EQ(qorOpenDeviceBySerialNumber(nullptr, 1), qorNullPtrErr);
    EXPECT_EQ(qorSetCalFilePath(nullptr), qorNoError);
}

}  // namespace
