// Every configuration call against the edges of its types: each argument in
// turn takes NaN, the infinities, -0, the smallest denormal, +-1e308 and
// negatives (doubles) or INT_MIN, -1, 0, 1, INT_MAX and values just out of
// range (ints), the others staying good. A refusal leaves the settings entry
// byte for byte as it was; an accepted or clamped value is stored finite and
// within its range.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "device_slot.h"
#include "qor_api.h"

namespace {

constexpr int kSlot = 6;

// An argument: an int or a double (bools are only ever 0 or 1 in C).
struct Arg {
    bool isInt;
    double value;
    int AsInt() const { return static_cast<int>(value); }
};

struct ConfigCall {
    const char* name;
    std::vector<Arg> good;
    std::function<qorStatus(int device, const std::vector<Arg>& a)> call;
};

const std::vector<ConfigCall>& Calls() {
    static const std::vector<ConfigCall> calls = {
        {"qorConfigAcquisition", {{true, 0}, {true, 0}},
         [](int d, const std::vector<Arg>& a) { return qorConfigAcquisition(d, a[0].AsInt(), a[1].AsInt()); }},
        {"qorConfigCenterSpan", {{false, 1e9}, {false, 1e6}},
         [](int d, const std::vector<Arg>& a) { return qorConfigCenterSpan(d, a[0].value, a[1].value); }},
        {"qorConfigLevel", {{false, -20.0}},
         [](int d, const std::vector<Arg>& a) { return qorConfigLevel(d, a[0].value); }},
        {"qorConfigGainAtten", {{true, 1}, {true, 1}},
         [](int d, const std::vector<Arg>& a) { return qorConfigGainAtten(d, a[0].AsInt(), a[1].AsInt(), true); }},
        {"qorConfigSweepCoupling", {{false, 10e3}, {false, 10e3}},
         [](int d, const std::vector<Arg>& a) { return qorConfigSweepCoupling(d, a[0].value, a[1].value, true); }},
        {"qorConfigRBWShape", {{true, 1}},
         [](int d, const std::vector<Arg>& a) { return qorConfigRBWShape(d, a[0].AsInt()); }},
        {"qorConfigProcUnits", {{true, 0}},
         [](int d, const std::vector<Arg>& a) { return qorConfigProcUnits(d, a[0].AsInt()); }},
        {"qorConfigIQ", {{true, 4}, {false, 50e3}},
         [](int d, const std::vector<Arg>& a) { return qorConfigIQ(d, a[0].AsInt(), a[1].value); }},
        {"qorConfigAudio", {{true, 1}, {false, 1e8}, {false, 1e5}, {false, 1e4}, {false, 100.0}, {false, 75.0}},
         [](int d, const std::vector<Arg>& a) {
             return qorConfigAudio(d, a[0].AsInt(), a[1].value, a[2].value, a[3].value, a[4].value, a[5].value);
         }},
        {"qorConfigRealTime", {{false, 50.0}, {true, 20}},
         [](int d, const std::vector<Arg>& a) { return qorConfigRealTime(d, a[0].value, a[1].AsInt()); }},
        {"qorConfigRealTimeOverlap", {{false, 0.5}},
         [](int d, const std::vector<Arg>& a) { return qorConfigRealTimeOverlap(d, a[0].value); }},
        {"qorConfigTgSweep", {{true, 100}},
         [](int d, const std::vector<Arg>& a) { return qorConfigTgSweep(d, a[0].AsInt(), true, true); }},
    };
    return calls;
}

const std::vector<double>& DoubleEdges() {
    static const std::vector<double> edges = {NAN, INFINITY, -INFINITY, -0.0, 0.0, 5e-324, 1e308, -1e308,
                                              -1.0, -1e9, 1e-300, 3e10, 1e15};
    return edges;
}

const std::vector<double>& IntEdges() {
    static const std::vector<double> edges = {INT_MIN, -2, -1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 100, 256, 1 << 20, INT_MAX};
    return edges;
}

// The entry is stored finite and within the ranges the engines rely on.
void ExpectSane(const qor::Settings& s) {
    for (const double v : {s.center, s.span, s.start, s.stop, s.refLevel, s.rbw, s.vbw, s.iqBandwidth,
                           s.audioCenter, s.audioBandwidth, s.audioLowPass, s.audioHighPass, s.audioDeemphasis,
                           s.rtFrameScale, s.rtOverlap}) {
        EXPECT_TRUE(std::isfinite(v)) << v;
    }
    EXPECT_GE(s.refLevel, -200.0);
    EXPECT_GE(s.start, s.minFreq);
    EXPECT_LE(s.stop, s.maxFreq);
    EXPECT_GT(s.rbw, 0.0);
    EXPECT_GT(s.vbw, 0.0);
    EXPECT_GE(s.atten, -1);
    EXPECT_LE(s.atten, 3);
    EXPECT_GE(s.gain, -1);
    EXPECT_LE(s.gain, 2);
    EXPECT_GE(s.iqDecimationLog2, 0);
    EXPECT_LE(s.iqDecimationLog2, 7);
    EXPECT_GT(s.rtFrameRate, 0);
    EXPECT_GT(s.tgSweepSize, 0);
}

TEST(BadInput, RefusalsChangeNothingAndAcceptedValuesAreSane) {
    OpenSlot slot(kSlot);
    const std::set<qorStatus> known = [] {
        std::set<qorStatus> statuses;
        for (int s = -1000; s <= 1000; ++s) {
            if (std::string(qorGetErrorString(static_cast<qorStatus>(s))) != "Invalid Status Code") {
                statuses.insert(static_cast<qorStatus>(s));
            }
        }
        return statuses;
    }();
    int cases = 0;
    for (const ConfigCall& c : Calls()) {
        for (std::size_t position = 0; position < c.good.size(); ++position) {
            const std::vector<double>& edges = c.good[position].isInt ? IntEdges() : DoubleEdges();
            for (const double edge : edges) {
                SCOPED_TRACE(testing::Message() << c.name << ", argument " << position << " = " << edge);
                std::vector<Arg> args = c.good;
                args[position].value = edge;
                slot.entry().ResetForOpen(DeviceTypeVelmB);
                unsigned char before[sizeof(qor::Settings)];
                std::memcpy(before, &slot.entry(), sizeof before);
                const qorStatus status = c.call(kSlot, args);
                ++cases;
                EXPECT_TRUE(known.count(status)) << status;
                if (status < 0) {
                    EXPECT_EQ(std::memcmp(before, &slot.entry(), sizeof before), 0) << "refused with " << status;
                } else {
                    ExpectSane(slot.entry());
                }
            }
        }
    }
    EXPECT_GT(cases, 300);
    RecordProperty("cases", cases);
}

}  // namespace
