// The frame every exported call with a device shares: index (-2), open (-3),
// required pointers (-1), then its own checks and the mode tests.
#include <gtest/gtest.h>

#include <climits>

#include <functional>
#include <string>
#include <vector>

#include "device_slot.h"
#include "qor_api.h"

namespace {

struct Buffers {
    float f[16384 * 2] = {};
    double d[16384 * 2] = {};
    int i1 = 0, i2 = 0, i3 = 0, i4 = 0;
    double d1 = 0, d2 = 0;
    float f1 = 0;
    bool b = false;
    char text[16] = {};
    IQPacket packet{f, 16, 0, 0, 0, 0, 0};
    SelfTestResults results{};
};

// Expected status in ModeIdle with good arguments; kHardware marks calls that
// go to the unit or change its state, which a slot without a unit can't show.
constexpr int kHardware = 1000;

struct FrameCase {
    const char* name;
    std::function<qorStatus(int device, Buffers& b, bool nulls)> call;
    bool hasRequiredPointer;
    int idleStatus;
};

#define P(x) (nulls ? nullptr : (x))

const std::vector<FrameCase>& Cases() {
    static const std::vector<FrameCase> cases = {
        {"qorCloseDevice", [](int d, Buffers&, bool) { return qorCloseDevice(d); }, false, kHardware},
        {"qorPreset", [](int d, Buffers&, bool) { return qorPreset(d); }, false, kHardware},
        {"qorGetSerialNumber", [](int d, Buffers& b, bool nulls) { return qorGetSerialNumber(d, P(&b.i1)); }, true, 0},
        {"qorGetFirmwareString", [](int d, Buffers& b, bool nulls) { return qorGetFirmwareString(d, P(b.text)); }, true, 0},
        {"qorGetDeviceType", [](int d, Buffers& b, bool nulls) { return qorGetDeviceType(d, P(&b.i1)); }, true, 0},
        {"qorConfigAcquisition", [](int d, Buffers&, bool) { return qorConfigAcquisition(d, 0, 0); }, false, 0},
        {"qorConfigCenterSpan", [](int d, Buffers&, bool) { return qorConfigCenterSpan(d, 1e9, 1e6); }, false, 0},
        {"qorConfigLevel", [](int d, Buffers&, bool) { return qorConfigLevel(d, -10.0); }, false, 0},
        {"qorConfigGainAtten", [](int d, Buffers&, bool) { return qorConfigGainAtten(d, 1, 1, false); }, false, 0},
        {"qorConfigSweepCoupling", [](int d, Buffers&, bool) { return qorConfigSweepCoupling(d, 1e3, 1e3, false); }, false, 0},
        {"qorConfigRBWShape", [](int d, Buffers&, bool) { return qorConfigRBWShape(d, 2); }, false, 0},
        {"qorConfigProcUnits", [](int d, Buffers&, bool) { return qorConfigProcUnits(d, 1); }, false, 0},
        {"qorConfigIQ", [](int d, Buffers&, bool) { return qorConfigIQ(d, 4, 5e4); }, false, 0},
        {"qorConfigAudio", [](int d, Buffers&, bool) { return qorConfigAudio(d, 1, 1e8, 1e5, 1e4, 100, 75); }, false, 0},
        {"qorConfigRealTime", [](int d, Buffers&, bool) { return qorConfigRealTime(d, 50.0, 20); }, false, 0},
        {"qorConfigRealTimeOverlap", [](int d, Buffers&, bool) { return qorConfigRealTimeOverlap(d, 0.5); }, false, 0},
        {"qorConfigTgSweep", [](int d, Buffers&, bool) { return qorConfigTgSweep(d, 100, true, true); }, false, 0},
        {"qorInitiate", [](int d, Buffers&, bool) { return qorInitiate(d, ModeIdle); }, false, 0},
        {"qorAbort", [](int d, Buffers&, bool) { return qorAbort(d); }, false, 0},
        {"qorQuerySweepInfo", [](int d, Buffers& b, bool nulls) { return qorQuerySweepInfo(d, &b.i1, P(&b.d1), &b.d2); }, true, -6},
        {"qorQueryStreamInfo", [](int d, Buffers& b, bool) { return qorQueryStreamInfo(d, &b.i1, &b.d1, &b.d2); }, false, -6},
        {"qorQueryRealTimeFrameInfo", [](int d, Buffers& b, bool) { return qorQueryRealTimeFrameInfo(d, &b.i1, &b.i2); }, false, -6},
        {"qorQueryRealTimePoi", [](int d, Buffers& b, bool nulls) { return qorQueryRealTimePoi(d, P(&b.d1)); }, true, -6},
        {"qorQueryTemperature", [](int d, Buffers& b, bool nulls) { return qorQueryTemperature(d, P(&b.f1)); }, true, kHardware},
        {"qorQueryDiagnostics", [](int d, Buffers& b, bool nulls) { return qorQueryDiagnostics(d, P(&b.f1)); }, true, kHardware},
        {"qorGetSweep_32f", [](int d, Buffers& b, bool nulls) { return qorGetSweep_32f(d, b.f, P(b.f)); }, true, -6},
        {"qorGetSweep_64f", [](int d, Buffers& b, bool nulls) { return qorGetSweep_64f(d, P(b.d), b.d); }, true, -6},
        {"qorGetPartialSweep_32f", [](int d, Buffers& b, bool nulls) { return qorGetPartialSweep_32f(d, b.f, b.f, &b.i1, P(&b.i2)); }, true, -6},
        {"qorGetPartialSweep_64f", [](int d, Buffers& b, bool nulls) { return qorGetPartialSweep_64f(d, b.d, b.d, P(&b.i1), &b.i2); }, true, -6},
        {"qorGetRealTimeFrame", [](int d, Buffers&, bool) { return qorGetRealTimeFrame(d, nullptr, nullptr, nullptr); }, false, -6},
        {"qorGetIQ_32f", [](int d, Buffers& b, bool nulls) { return qorGetIQ_32f(d, P(b.f)); }, true, -6},
        {"qorGetIQ_64f", [](int d, Buffers& b, bool nulls) { return qorGetIQ_64f(d, P(b.d)); }, true, -6},
        {"qorGetIQ", [](int d, Buffers& b, bool nulls) { return qorGetIQ(d, P(b.f), 16, 0); }, true, -6},
        {"qorGetIQData", [](int d, Buffers& b, bool nulls) { return qorGetIQData(d, P(&b.packet)); }, true, -6},
        {"qorGetIQDataUnpacked", [](int d, Buffers& b, bool nulls) { return qorGetIQDataUnpacked(d, P(b.f), 16, 0, nullptr, nullptr, nullptr, nullptr); }, true, -6},
        {"qorGetAudio", [](int d, Buffers& b, bool nulls) { return qorGetAudio(d, P(b.f)); }, true, -6},
        {"qorAttachTg", [](int d, Buffers&, bool) { return qorAttachTg(d); }, false, kHardware},
        {"qorIsTgAttached", [](int d, Buffers& b, bool nulls) { return qorIsTgAttached(d, P(&b.b)); }, true, 0},
        {"qorStoreTgThru", [](int d, Buffers&, bool) { return qorStoreTgThru(d, 1); }, false, -6},
        {"qorSetTg", [](int d, Buffers&, bool) { return qorSetTg(d, 1e9, -10.0); }, false, kHardware},
        {"qorSetTgReference", [](int d, Buffers&, bool) { return qorSetTgReference(d, 0); }, false, kHardware},
        {"qorGetTgFreqAmpl", [](int d, Buffers& b, bool) { return qorGetTgFreqAmpl(d, &b.d1, &b.d2); }, false, kHardware},
        {"qorSetTimebase", [](int d, Buffers&, bool) { return qorSetTimebase(d, 1); }, false, kHardware},
        {"qorSetTimebaseCorrection", [](int d, Buffers&, bool) { return qorSetTimebaseCorrection(d, 1.0); }, false, kHardware},
        {"qorGetTimebaseCorrection", [](int d, Buffers& b, bool nulls) { return qorGetTimebaseCorrection(d, P(&b.d1)); }, true, kHardware},
        {"qorAdjustTimebase", [](int d, Buffers&, bool) { return qorAdjustTimebase(d, 1.0); }, false, kHardware},
        {"qorConfigIFOutput", [](int d, Buffers&, bool) { return qorConfigIFOutput(d, 1e9, 3.6e7, 0, 0); }, false, kHardware},
        {"qorSelfTest", [](int d, Buffers& b, bool nulls) { return qorSelfTest(d, P(&b.results)); }, true, kHardware},
    };
    return cases;
}

#undef P

// Exported functions without a device: list, the two opens, the calibration path,
// version, product and status text.
constexpr int kCallsWithoutDevice = 7;

// Each call on a bad index, a closed slot, then an open idle slot with null
// and with good pointers.
TEST(Frame, ChecksComeInTheFramesOrder) {
    EXPECT_EQ(Cases().size() + kCallsWithoutDevice, 55u) << "the table covers every exported call with a device";
    OpenSlot slot(2);
    Buffers b;
    for (const FrameCase& c : Cases()) {
        SCOPED_TRACE(c.name);
        for (int index : {INT_MIN, -1, 8, 1000, INT_MAX}) {
            EXPECT_EQ(c.call(index, b, true), qorInvalidDeviceErr) << index;
        }
        EXPECT_EQ(c.call(3, b, true), qorDeviceNotOpenErr) << "a closed device comes before null pointers";
        if (c.hasRequiredPointer) {
            EXPECT_EQ(c.call(2, b, true), qorNullPtrErr) << "null pointers come before modes";
        }
        if (c.idleStatus != kHardware) {
            EXPECT_EQ(c.call(2, b, false), c.idleStatus);
        }
    }
}

}  // namespace
