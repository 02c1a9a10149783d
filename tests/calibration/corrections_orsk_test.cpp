// CorrectionsOrsk's rules on a synthetic unit whose path response is a simple
// closed form: column base + 0.5 dB per record + 1 dB per GHz. Its
// corrections are checked against the instrument's true gain in true_gain_test.
#include <gtest/gtest.h>

#include <cmath>

#include "cal_images.h"
#include "corrections_orsk.h"

namespace {

using caltest::Image;
namespace ot = caltest::orsk_table;

constexpr double kColumnBase[5] = {0.0, 1.0, 3.0, 7.0, 15.0};

struct UnitShape {
    double lf0Offset = -1.0;    // the unit's own data below 375 kHz; 0 asks for the generic repair
    int band4RiseFrom = 1000;   // band 4 point from which its low-IF response rises above band 3
};

Image MakeTable(const UnitShape& shape) {
    Image t(768000);
    for (int r = 0; r < 12; ++r) {
        const int rec = r * ot::kRecord;
        for (int k = 0; k < 52; ++k) {
            t.F32(rec + 8 * k, r == 6 ? 0.5 : 7.0);
            t.F32(rec + 8 * k + 4, r == 6 ? 1.0 : 7.0);
        }
        for (int s = 0; s < 9; ++s) {
            const ot::Segment& seg = ot::kSegments[s];
            for (int p = 0; p < seg.points; ++p) {
                const double f = seg.start + p * seg.step;
                for (int c = 0; c < 5; ++c) {
                    double v = kColumnBase[c] + 0.5 * r + f / 1e9;
                    if (s == 0) v += shape.lf0Offset;
                    if (s == 7 && p >= shape.band4RiseFrom) v += 0.5;
                    t.F32(rec + ot::kPath + 4 * (c * ot::kColumn + seg.first + p), v);
                }
            }
        }
        // Detector tables stored relative to curve A at code 300 (0.04 dB).
        for (int i = 0; i < 1286; ++i) {
            t.U16(rec + ot::kRf + 6 * i, 300);
            t.F32(rec + ot::kRf + 6 * i + 2, 0.01 * i + 0.1 * r + 0.04);
        }
        for (int i = 0; i < 100; ++i) {
            t.U16(rec + ot::kFine + 6 * i, 300);
            t.F32(rec + ot::kFine + 6 * i + 2, 0.02 * i + 0.3 * r + 0.04);
        }
        for (int i = 0; i < 21; ++i) {
            t.U16(rec + ot::kCurveACode + 2 * i, 100 + 100 * i);
            t.F32(rec + ot::kCurveALevel + 4 * i, 0.01 * i * i);
        }
        for (int i = 0; i < 16; ++i) {
            t.U16(rec + ot::kCurveBCode + 2 * i, 50 + 200 * i);
            t.F32(rec + ot::kCurveBLevel + 4 * i, -0.5 * i);
        }
        t.F32(rec + ot::kGainStep, 10.0 + 0.1 * r);
        t.F32(rec + ot::kTemperature, -10.0 + 5.0 * r);  // records 5 C apart
    }
    t.U16(ot::kOcxoDac, 0x1234);
    t.U16(ot::kTimebase, 32768 - 500);
    return t;
}

// Offset of the path state from column 0: highIf 1 reads c0, c1, c1-c2+c3,
// c1-c2+c4; highIf 0 reads c0-c1+c2, c2, c3, c4.
double StateValue(int highIf, int att) {
    const double* c = kColumnBase;
    if (highIf) return att == 0 ? c[0] : att == 1 ? c[1] : c[1] - c[2] + c[att + 1];
    return att == 0 ? c[0] - c[1] + c[2] : c[att + 1];
}

class OrskTest : public ::testing::Test {
protected:
    qor::CorrectionsOrsk& Loaded(const UnitShape& shape = {}) {
        table = MakeTable(shape);
        corr = std::make_unique<qor::CorrectionsOrsk>(qor::DeviceFamily(4), table.data(), unit.data());
        corr->Load(nullptr);
        return *corr;
    }
    Image table{0};
    Image unit{4096};
    std::unique_ptr<qor::CorrectionsOrsk> corr;
};

TEST_F(OrskTest, LoadTakesTimebaseAndFindsNoCrossingAsDefault) {
    qor::CorrectionsOrsk& c = Loaded();
    EXPECT_DOUBLE_EQ(c.timebaseFactor, 1.0 - 500e-9);
    EXPECT_DOUBLE_EQ(c.crossoverFrequency, 8.505e9);
    EXPECT_EQ(c.crossoverWord, 42496u);
    const std::pair<double, int> bands[] = {{149.9e6, 0},  {150e6, 1},  {4.0063e9, 1},       {4.0065e9, 2},
                                            {6.5023e9, 2}, {6.5025e9, 3}, {42496 * 200000.0 - 1.0, 3},
                                            {42496 * 200000.0, 4}, {9.7535e9, 4}, {9.7537e9, 5}};
    for (const auto& [f, band] : bands) EXPECT_EQ(c.BandOf(f), band) << f;
}

// The path rises 1 dB per GHz up to 12.98 GHz and 0.6 dB (gain step
// included) per record from 10 C to 40 C; beyond both the edges hold. Below
// 375 kHz the unit's own data lie 1 dB under the rest.
TEST_F(OrskTest, SegmentsAndEdgesOfFrequencyAndTemperature) {
    qor::CorrectionsOrsk& c = Loaded();
    auto at = [&](double f, double t) {
        c.temperature = t;
        return c.GetCorrection(f, 1, 1, 1, 0.0, -1);
    };
    EXPECT_NEAR(at(374e3, 25.0) - at(376e3, 25.0), 1.0, 1e-3);
    EXPECT_NEAR(at(12.97e9, 25.0) - at(12.98e9, 25.0), 0.01, 1e-4);
    EXPECT_DOUBLE_EQ(at(13.5e9, 25.0), at(12.98e9, 25.0));
    EXPECT_NEAR(at(1e9, 20.0) - at(1e9, 25.0), 0.6, 1e-4);
    EXPECT_DOUBLE_EQ(at(1e9, -5.0), at(1e9, 10.0));
    EXPECT_DOUBLE_EQ(at(1e9, 60.0), at(1e9, 40.0));
}

TEST_F(OrskTest, CrossoverIsWhereBand4RisesAboveBand3) {
    UnitShape shape;
    shape.band4RiseFrom = 5;  // 8.30 GHz
    qor::CorrectionsOrsk& c = Loaded(shape);
    EXPECT_DOUBLE_EQ(c.crossoverFrequency, 8.295e9);
    EXPECT_EQ(c.crossoverWord, 648u * 64u);  // 8.2944 GHz, a multiple of 12.8 MHz
    EXPECT_EQ(c.BandOf(8.2944e9), 4);
    EXPECT_EQ(c.BandOf(8.2943e9), 3);
}

TEST_F(OrskTest, LowFrequencyRepairBuildsOnThe2MHzPoint) {
    UnitShape shape;
    shape.lf0Offset = 0.0;  // no roll-off of its own: the unit gets the generic one
    qor::CorrectionsOrsk& c = Loaded(shape);
    const double e1[6] = {-1.96, -0.8, -0.13, 0.1, 0.19, 0.25};
    const double e2[6] = {-0.63, -0.34, 0.0, 0.0, 0.0, 0.0};
    const double e3[6] = {0.25, 0.44, 0.2, 0.0, 0.0, 0.0};
    const double e4[6] = {0.0, 0.23, -0.1, 0.0, 0.0, 0.0};
    c.temperature = 25.0;  // record 7 exactly
    const double gain1 = 10.0 + 0.1 * 7 + 3.0;  // gain step of record 7 and the window's 3 dB
    for (int i = 0; i < 6; ++i) {
        const double lf0 = 100e3 + 50e3 * i;
        const double lf1 = 400e3 + 100e3 * i;
        const double at2MHz = 0.5 * 7 + 0.002;
        EXPECT_NEAR(c.GetCorrection(lf0, 0, 1, 1, 0.0, 0), -(at2MHz + e1[i]) - gain1, 1e-5) << i;
        EXPECT_NEAR(c.GetCorrection(lf0, 1, 1, 0, 0.0, 0),
                    -(at2MHz + 3.0 + e2[i]) - gain1 + 10 * std::log10(0.5), 1e-5)
            << i;
        EXPECT_NEAR(c.GetCorrection(lf1, 1, 1, 1, 0.0, 0), -(at2MHz + 1.0 + e3[i]) - gain1, 1e-5) << i;
        EXPECT_NEAR(c.GetCorrection(lf1, 3, 1, 0, 0.0, 0),
                    -(at2MHz + 15.0 + e4[i]) - gain1 + 10 * std::log10(0.5), 1e-5)
            << i;
    }
    // The 1 MHz point takes the 2 MHz point's values.
    EXPECT_NEAR(c.GetCorrection(1e6, 2, 1, 1, 0.0, 0), c.GetCorrection(2e6, 2, 1, 1, 0.0, 0), 1e-6);
}

TEST_F(OrskTest, SelectAttenGainRows) {
    qor::CorrectionsOrsk& c = Loaded();
    struct Row {
        double v;
        int atten, gain;
    };
    const Row rows[] = {{-32.5, 0, 2}, {-32.0, 0, 1}, {-20.0, 1, 1}, {-10.0, 2, 1},
                        {0.0, 3, 1},   {10.0, 2, 0},  {16.0, 3, 0},  {99.0, 3, 0}};
    for (const Row& row : rows) {
        int atten = -1, gain = -1;
        c.SelectAttenGain(0.0, row.v - 3.0, &atten, &gain);
        EXPECT_EQ(atten, row.atten) << row.v;
        EXPECT_EQ(gain, row.gain) << row.v;
    }
}

// Curve A of the synthetic unit is 0.01 i^2 dB at code 100 + 100 i; curve B
// is -0.5 dB per 200 codes from code 50. The detector tables hold 0.01 dB per
// 10 MHz from 200 MHz (fine: 0.02 dB per 3 MHz from 8.3 GHz) plus their record.
TEST_F(OrskTest, DetectorPowerRatioCombinesCurvePathAndRfTables) {
    qor::CorrectionsOrsk& c = Loaded();
    c.temperature = 27.5;  // records 7 and 8, half way
    const double r = 7.5;
    struct Probe {
        double f;
        int att, setting;
        uint16_t code;
        double curve;  // the detector curve's value at the code
        double rf;     // the detector table's value at f
    };
    const Probe probes[] = {
        {1e9, 1, 11, 350, 0.065, 0.01 * 80 + 0.1 * r},              // inside curve A
        {1e9, 0, 11, 50, -0.01, 0.01 * 80 + 0.1 * r},               // below: points 0 and 2
        {1e9, 2, 11, 2300, 3.24 + 2 * 0.76, 0.01 * 80 + 0.1 * r},   // above: points 18 and 20
        {1e9, 3, 41, 1250, -3.0, 0.01 * 80 + 0.1 * r},              // curve B
        {8.301e9, 1, 41, 850, -2.0, 0.02 * 0 + 0.3 * r},            // fine table
        {8.299e9, 1, 41, 850, -2.0, 0.01 * 809.9 + 0.1 * r},        // just outside it
        {8.45e9, 2, 11, 350, 0.065, 0.02 * 50 + 0.3 * r},
    };
    for (const Probe& p : probes) {
        const int refAtt = p.setting >= 15 ? 3 : 1;
        const double sigMinusRef = StateValue(1, refAtt) - StateValue(1, p.att);
        const double expected = std::pow(10.0, (p.rf + sigMinusRef + p.curve) * 0.1);
        EXPECT_NEAR(c.DetectorPowerRatio(p.f, p.att, p.setting, p.code, 0) / expected, 1.0, 1e-5)
            << p.f << " " << p.code;
    }
    c.temperature = 55.0;  // record index 13: beyond the table, not clamped for the detector
    EXPECT_NEAR(c.DetectorPowerRatio(1e9, 1, 11, 350, 0) / std::pow(10.0, (0.01 * 80 + 0.1 * 13 + 0.065) * 0.1), 1.0,
                1e-5);
}

}  // namespace
