// CorrectionsVelm against a synthetic unit whose tables sample simple
// closed forms, so that the expected correction can be written down
// directly from the forms at any frequency, setting and temperature.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "cal_images.h"
#include "corrections_velm.h"

namespace {

using caltest::Image;
namespace vu = caltest::velm_unit;
namespace vt = caltest::velm_table;

double RecordTemperature(int r) { return -20.0 + 5.0 * r; }
int Parity(int i) { return i % 2; }

// The synthetic unit, as bytes.
Image MakeUnit() {
    Image u(4096);
    for (int k = 0; k < 15; ++k) u.U8(vu::kPreampRolloff + k, 8 * k);  // k/4 dB
    u.U8(vu::kLowIfOffsetLow, 7);
    u.U8(vu::kLowIfOffsetHigh, 9);
    for (int a = 0; a < 4; ++a) {
        for (int i = 0; i < 150; ++i) u.U8(vu::kAttenLow + 150 * a + i, 20 + 16 * a + i);
        for (int i = 0; i < 426; ++i) u.U8(vu::kAttenHigh + 426 * a + i, 128 + 16 * a + Parity(i));
    }
    for (int k = 0; k < 52; ++k) {
        u.U8(vu::kIfHigh + k, 100);
        u.U8(vu::kIfLow + k, 100 - k);
    }
    u.U16(vu::kGain0, 128);
    u.U16(vu::kGain2, 128);
    u.U16(vu::kLevelHigh, 32768);
    u.U16(vu::kLevelLow, 33268);
    u.U16(vu::kTimebase, 33768);
    for (int i = 0; i < 150; ++i) u.U8(vu::kPreampLow + i, 100 + i);
    for (int i = 0; i < 426; ++i) u.U8(vu::kPreampHigh + i, 200);
    return u;
}

Image MakeTable() {
    Image t(768000);
    for (int r = 0; r < 16; ++r) {
        const int rec = r * vt::kRecord;
        for (int a = 0; a < 4; ++a) {
            const int group = rec + vt::kAttenDelta + a * 576 * 8;
            for (int i = 0; i < 150; ++i) t.F64(group + 8 * i, 0.1 * r * (a + 1) + 0.01 * i);
            for (int i = 0; i < 426; ++i) t.F64(group + 8 * (150 + i), 0.2 * r * (a + 1) + 0.001 * i);
        }
        for (int i = 0; i < 150; ++i) {
            t.F64(rec + vt::kPreampLow + 8 * i, 0.2 * r + 0.003 * i);
            t.F64(rec + vt::kHighIfLow + 8 * i, 0.05 * r + 0.001 * i);
        }
        for (int i = 0; i < 426; ++i) {
            t.F64(rec + vt::kPreampHigh + 8 * i, 0.3 * r);
            t.F64(rec + vt::kHighIfHigh + 8 * i, 0.07 * r + 0.002 * i);
        }
        t.F64(rec + vt::kTemperature, RecordTemperature(r));
    }
    return t;
}

// Roll-off of the IF filter at the offsets the cases use.
double Rolloff(double ifOffset) {
    static const std::map<double, double> table = {
        {0.0, 0.0}, {50000.0, 0.582}, {-50000.0, 0.582}, {125000.0, -0.247}, {130000.0, -0.196 - 6 * 0.051}};
    return table.at(ifOffset);
}

struct Case {
    uint32_t type;
    double f;
    int att, gain, highIf;
    double ifOffset;
    int band;
    bool preamp;
    double temperature;
};

// The correction the closed forms of the synthetic unit give.
double Expected(const Case& c) {
    const bool low = c.band < 0 ? c.f < 150e6 : c.band == 0;
    const bool preamp = c.preamp && c.type != 1;
    double base = low ? -10.0 : -10.5;
    const double g0 = c.type == 1 ? 15.83 : 16.0;
    const double g2 = 12.0;
    const double level = c.gain == 0 ? base + g0 : c.gain == 2 ? base - g2 : base;

    double response;
    if (low) {
        response = (20 + 16 * c.att + (c.f - 1e6) / 1e6 - 128) / 32;
        if (preamp) {
            double p;
            if (c.f <= 300000.0)
                p = 10.0 - std::pow((300000.0 - c.f) / 85000.0, 2);
            else if (c.f < 1e6)
                p = 10.0 - ((c.f - 300000.0) / 50000.0) / 4;
            else
                p = (100 + (c.f - 1e6) / 1e6) * 0.1;
            response -= p;
        }
    } else {
        const double x = (c.f - 150e6) / 1e7;
        // Beyond the grid the last two points extrapolate.
        const int i = std::min(std::max(static_cast<int>(std::floor(x)), 0), 424);
        const double w = x - i;
        const double parity = (1 - w) * Parity(i) + w * Parity(i + 1);
        response = (16 * c.att + parity) / 16 + (c.type == 1 ? 2.5e-9 : 4e-9) * c.f - (preamp ? 20.0 : 0.0);
    }

    double temperatureTerm;
    if (c.type == 1) {
        temperatureTerm = c.highIf ? 0.0 : (low ? 0.7 : 0.9);
    } else {
        const double idx = (c.temperature + 20.0) / 5.0;
        const int lower = std::min(std::max(static_cast<int>(std::floor(idx)), 0), 11);
        const double x = low ? c.f / 1e6 : (c.f - 150e6) / 1e7;
        const double cur = (low ? 0.1 : 0.2) * (c.att + 1) * (idx - 6);
        const double side = c.highIf == 1 ? (low ? 0.05 * idx + 0.001 * x : 0.07 * idx + 0.002 * x) : 0.0;
        const double pre = preamp ? (low ? 0.2 : 0.3) * (lower - 6) : 0.0;
        temperatureTerm = pre + cur + side;
    }

    const double y = 25.0 - c.ifOffset / 5000.0;
    const double p = c.highIf ? 1.0 : 0.01 * (100 - y);
    const double ifTerm = 10 * std::log10(p) - (Rolloff(c.ifOffset) - (c.type == 2 ? 0.6 : 0.0));
    return level - temperatureTerm + response + c.att * 5.0 + ifTerm - 3.0;
}

class VelmTest : public ::testing::Test {
protected:
    Image unit = MakeUnit();
    Image table = MakeTable();
};

TEST_F(VelmTest, AgreesWithTheClosedFormsEverywhere) {
    const double frequencies[] = {100e3, 250e3, 300e3, 420e3, 999e3, 1e6, 2.5e6, 17.3e6, 149.9e6,
                                  150e6, 155e6, 1234.5e6, 4.4e9};
    const double temperatures[] = {-30.0, -20.0, 7.5, 10.0, 12.3, 35.0, 41.0, 70.0};
    const double offsets[] = {0.0, 50000.0, -50000.0, 125000.0, 130000.0};
    for (uint32_t type : {1u, 2u}) {
        qor::CorrectionsVelm corr(qor::DeviceFamily(static_cast<int32_t>(type)), table.data(), unit.data());
        corr.Load(nullptr);
        for (double f : frequencies)
            for (int att = 0; att < 4; ++att)
                for (int gain = 0; gain < 3; ++gain)
                    for (int highIf = 0; highIf < 2; ++highIf)
                        for (bool preamp : {false, true})
                            for (double t : temperatures)
                                for (double offset : offsets)
                                    for (int band : {-1, 0, 1}) {
                                        const Case c{type, f, att, gain, highIf, offset, band, preamp, t};
                                        corr.preampOn = preamp;
                                        corr.temperature = t;
                                        ASSERT_NEAR(corr.GetCorrection(f, att, gain, highIf, offset, band),
                                                    Expected(c), 1e-9)
                                            << "type " << type << " f " << f << " att " << att << " gain "
                                            << gain << " highIf " << highIf << " preamp " << preamp << " t " << t
                                            << " offset " << offset << " band " << band;
                                    }
    }
}

TEST_F(VelmTest, LoadTimebaseAndBandSplit) {
    qor::CorrectionsVelm corr(qor::DeviceFamily(2), table.data(), unit.data());
    EXPECT_EQ(corr.timebaseFactor, 1.0);
    EXPECT_EQ(corr.Load(nullptr), 0);
    EXPECT_DOUBLE_EQ(corr.timebaseFactor, 1.0 + 1000e-9);
    EXPECT_EQ(corr.DetectorPowerRatio(1e9, 1, 41, 500, 0), 0.0);
    EXPECT_EQ(corr.BandOf(149999999.0), 0);
    EXPECT_EQ(corr.BandOf(150e6), 1);
    corr.temperature = 25.0;
    // At exactly 150 MHz: band -1 takes the high band's level word, band 0 the low band's.
    const double auto150 = corr.GetCorrection(150e6, 0, 1, 1, 0.0, -1);
    EXPECT_DOUBLE_EQ(auto150, corr.GetCorrection(150e6, 0, 1, 1, 0.0, 1));
    EXPECT_NE(auto150, corr.GetCorrection(150e6, 0, 1, 1, 0.0, 0));
}

TEST_F(VelmTest, FirstModelHasNoPreamplifierAndStaysSo) {
    qor::CorrectionsVelm corr(qor::DeviceFamily(1), table.data(), unit.data());
    corr.Load(nullptr);
    corr.preampOn = true;
    const double with = corr.GetCorrection(50e6, 1, 1, 1, 0.0, -1);
    EXPECT_FALSE(corr.preampOn);
    EXPECT_DOUBLE_EQ(with, corr.GetCorrection(50e6, 1, 1, 1, 0.0, -1));
}

TEST(VelmSelectAttenGain, RowsAreStrictUpperLimits) {
    qor::CorrectionsVelm corr(qor::DeviceFamily(2), nullptr, nullptr);
    struct Row {
        double refLevel, minCorrection;
        int atten, gain;
    };
    // v = refLevel + 3 - minCorrection
    const Row rows[] = {{-26.0, 0.0, 0, 2}, {-25.0, 0.0, 1, 2}, {-20.1, 0.0, 1, 2}, {-20.0, 0.0, 2, 2},
                        {-15.0, 0.0, 1, 1}, {-8.0, 0.0, 2, 1},  {-3.0, 0.0, 3, 1},  {2.0, 0.0, 2, 0},
                        {8.0, 0.0, 3, 0},   {8.0, 10.0, 3, 1},  {30.0, 0.0, 3, 0}};
    for (const Row& row : rows) {
        int atten = -1, gain = -1;
        corr.SelectAttenGain(row.minCorrection, row.refLevel, &atten, &gain);
        EXPECT_EQ(atten, row.atten) << row.refLevel << " " << row.minCorrection;
        EXPECT_EQ(gain, row.gain) << row.refLevel << " " << row.minCorrection;
    }
}

}  // namespace
