// CorrectionsVelm's rules on a synthetic unit: the band split, the first
// model's missing preamplifier, the timebase word and the choice of
// attenuator and gain. Its corrections are checked against the instrument's
// true gain in true_gain_test.
#include <gtest/gtest.h>

#include <memory>

#include "cal_images.h"
#include "corrections_velm.h"

namespace {

using caltest::Image;
namespace vu = caltest::velm_unit;
namespace vt = caltest::velm_table;

// A unit whose level words differ between the bands, with a preamplifier
// response and a timebase word of 1 + 1000e-9; flat tables otherwise.
Image MakeUnit() {
    Image u(4096);
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
    for (int r = 0; r < 16; ++r) t.F64(r * vt::kRecord + vt::kTemperature, -20.0 + 5.0 * r);
    return t;
}

class VelmTest : public ::testing::Test {
protected:
    qor::CorrectionsVelm& Loaded(int32_t type) {
        corr = std::make_unique<qor::CorrectionsVelm>(qor::DeviceFamily(type), table.data(), unit.data());
        EXPECT_EQ(corr->timebaseFactor, 1.0);
        EXPECT_EQ(corr->Load(nullptr), 0);
        return *corr;
    }
    Image unit = MakeUnit();
    Image table = MakeTable();
    std::unique_ptr<qor::CorrectionsVelm> corr;
};

TEST_F(VelmTest, LoadTakesTheTimebaseWordAndBandOfSplitsAt150MHz) {
    qor::CorrectionsVelm& c = Loaded(2);
    EXPECT_DOUBLE_EQ(c.timebaseFactor, 1.0 + 1000e-9);
    EXPECT_EQ(c.DetectorPowerRatio(1e9, 1, 41, 500, 0), 0.0);
    EXPECT_EQ(c.BandOf(149999999.0), 0);
    EXPECT_EQ(c.BandOf(150e6), 1);
    c.temperature = 25.0;
    // At exactly 150 MHz: band -1 takes the high band's level word, band 0 the low band's.
    const double auto150 = c.GetCorrection(150e6, 0, 1, 1, 0.0, -1);
    EXPECT_DOUBLE_EQ(auto150, c.GetCorrection(150e6, 0, 1, 1, 0.0, 1));
    EXPECT_NE(auto150, c.GetCorrection(150e6, 0, 1, 1, 0.0, 0));
}

TEST_F(VelmTest, FirstModelHasNoPreamplifierAndStaysSo) {
    qor::CorrectionsVelm& c = Loaded(1);
    c.preampOn = true;
    const double with = c.GetCorrection(50e6, 1, 1, 1, 0.0, -1);
    EXPECT_FALSE(c.preampOn);
    EXPECT_DOUBLE_EQ(with, c.GetCorrection(50e6, 1, 1, 1, 0.0, -1));
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
