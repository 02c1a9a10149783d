// What each retrieval and query does in each mode, with a stand-in engine
// that counts how it is asked.
#include <gtest/gtest.h>

#include <vector>

#include "device_slot.h"
#include "qor_api.h"

namespace {

// Delivers a trace of `length` bins in two halves, each bin at -30 dBm.
class HalvesEngine : public qor::SweepEngine {
public:
    explicit HalvesEngine(int length) : length_(length) {}
    qorStatus GetSweep64(double*, double*) override { return qorNoError; }
    qorStatus GetSweep32(float*, float*) override { return qorNoError; }
    qorStatus GetPartialSweep64(double* min, double* max, int* start, int* stop) override {
        return Deliver(min, max, start, stop);
    }
    qorStatus GetPartialSweep32(float* min, float* max, int* start, int* stop) override {
        return Deliver(min, max, start, stop);
    }
    int calls = 0;

private:
    template <typename T>
    qorStatus Deliver(T* min, T* max, int* start, int* stop) {
        ++calls;
        *start = calls % 2 == 1 ? 0 : length_ / 2;
        *stop = calls % 2 == 1 ? length_ / 2 : length_;
        for (int i = 0; i < length_; ++i) min[i] = max[i] = T(-30.0);
        return qorNoError;
    }
    int length_;
};

class Modes : public ::testing::Test {
protected:
    OpenSlot slot{1};
    HalvesEngine* Run(int mode, int length) {
        auto engine = std::make_unique<HalvesEngine>(length);
        HalvesEngine* raw = engine.get();
        slot.device().m_engine = std::move(engine);
        slot.device().m_mode = mode;
        slot.device().m_sweepInfo.sweepLength = length;
        return raw;
    }
};

TEST_F(Modes, WholeSweepRepeatsPartialCallsUntilTheTraceStands) {
    HalvesEngine* engine = Run(ModeSweep, 10);
    std::vector<float> min(10), max(10);
    EXPECT_EQ(qorGetSweep_32f(1, min.data(), max.data()), qorNoError);
    EXPECT_EQ(engine->calls, 2);
    EXPECT_FLOAT_EQ(max[9], -30.0f);

    engine = Run(ModeSweep, 0);
    double dmin = 1.0, dmax = 1.0;
    EXPECT_EQ(qorGetSweep_64f(1, &dmin, &dmax), qorNoError);
    EXPECT_EQ(engine->calls, 0) << "an empty sweep asks nothing";
    EXPECT_EQ(dmin, 1.0);
}

TEST_F(Modes, LinearScaleConvertsTheWholeTraceToMillivolts) {
    Run(ModeSweep, 4);
    slot.device().m_settings.logScale = false;
    std::vector<double> min(4), max(4);
    int start = 0, stop = 0;
    EXPECT_EQ(qorGetPartialSweep_64f(1, min.data(), max.data(), &start, &stop), qorNoError);
    // -30 dBm in 50 ohm is 7.07 mV; the bins outside [start, stop) are converted too.
    EXPECT_NEAR(max[3], 7.0711, 1e-3);
    std::vector<float> fmin(4), fmax(4);
    EXPECT_EQ(qorGetSweep_32f(1, fmin.data(), fmax.data()), qorNoError);
    EXPECT_NEAR(fmin[0], 7.0711f, 1e-3f);
}

TEST_F(Modes, RetrievalsOfOtherModesAreRefused) {
    Run(ModeIQ, 8);
    float f[64] = {};
    int start, stop;
    EXPECT_EQ(qorGetSweep_32f(1, f, f), qorWrongModeErr);
    EXPECT_EQ(qorGetPartialSweep_32f(1, f, f, &start, &stop), qorNoError);  // reaches the engine
    EXPECT_EQ(qorGetRealTimeFrame(1, nullptr, nullptr, nullptr), qorWrongModeErr);
    EXPECT_EQ(qorGetAudio(1, f), qorNotConfiguredErr);
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
    slot.device().m_mode = ModeSweep;
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
    EXPECT_EQ(slot.device().m_engine, nullptr);
    EXPECT_EQ(slot.device().m_settings.rbw, 1234.0);

    Run(ModeSweep, 4);
    EXPECT_EQ(qorInitiate(1, 5), qorInvalidParameterErr);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
    EXPECT_EQ(slot.device().m_engine, nullptr);

    ASSERT_EQ(qorConfigCenterSpan(1, 1e9, 500.0), qorNoError);
    EXPECT_EQ(qorInitiate(1, ModeRealTime), qorInvalidParameterErr);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
}

TEST_F(Modes, AbortLeavesTheDeviceOpenAndIdle) {
    Run(ModeAudio, 4);
    EXPECT_EQ(qorAbort(1), qorNoError);
    EXPECT_EQ(slot.device().m_mode, ModeIdle);
    EXPECT_TRUE(slot.device().m_open);
    float f[4096];
    EXPECT_EQ(qorGetAudio(1, f), qorNotConfiguredErr);
}

TEST(Lifecycle, CallsWithoutADevice) {
    EXPECT_EQ(qorGetSerialNumberList(nullptr, nullptr), qorNullPtrErr);
    int serials[8];
    EXPECT_EQ(qorGetSerialNumberList(serials, nullptr), qorNullPtrErr);
    EXPECT_EQ(qorOpenDeviceBySerialNumber(nullptr, 1), qorNullPtrErr);
    EXPECT_EQ(qorSetCalFilePath(nullptr), qorNoError);
}

}  // namespace
