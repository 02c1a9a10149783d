// The synthesizer plan: the order of preferred moduli and worked tunings.
#include <gtest/gtest.h>

#include <cmath>

#include "tuning_plan.h"

namespace qor {
namespace {

TEST(TuningPlan, ModuliRankSmallFactorsTwoAndThreeLater) {
    const TuningPlan plan;
    const int32_t head[] = {2, 5, 7, 4, 3, 11, 13, 8, 17, 19, 10, 23, 25, 9, 14,
                            29, 31, 16, 35, 6, 37, 20, 41, 43, 22, 15, 47, 49, 26, 53};
    for (size_t i = 0; i < std::size(head); ++i) EXPECT_EQ(head[i], plan.moduli()[i]) << "at " << i;
    const int32_t tail[] = {972, 978, 984, 990, 996};
    for (size_t i = 0; i < std::size(tail); ++i)
        EXPECT_EQ(tail[i], plan.moduli()[TuningPlan::kModulusCount - std::size(tail) + i]);
}

TEST(TuningPlan, WorkedTunings) {
    struct Case {
        const char* name;
        double frequency, ifOffset;
        bool highSide;
        int avoid;
        int integer, fraction, modulus, dividerLog2;
        double residual;
    };
    const Case cases[] = {
        {"1 GHz at the high IF", 1e9, 10694444.4, true, -1, 404, 7, 25, 2, -5555.6},
        {"the same, avoiding 25", 1e9, 10694444.4, true, 25, 404, 8, 29, 2, 1e9 - ((8.0 / 29 + 404) * 1e7 / 4 - 10694444.4)},
        {"on a 10 MHz multiple", 4e9, 0.0, true, -1, 400, 0, 2, 0, 0.0},
        {"just below 4.4 GHz rounds up", 4.3999999e9, 0.0, true, -1, 440, 0, 2, 0, -100.0},
        {"LO below", 3e9, 1e8, false, -1, 290, 0, 2, 0, 0.0},
    };
    const TuningPlan plan;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LoTuning record;
        const double residual = plan.PlanTuning(c.frequency, c.ifOffset, c.highSide, c.avoid, record, 1);
        EXPECT_EQ(c.integer, record.integer);
        EXPECT_EQ(c.fraction, record.fraction);
        EXPECT_EQ(c.modulus, record.modulus);
        EXPECT_EQ(c.dividerLog2, record.dividerLog2);
        EXPECT_NEAR(c.residual, residual, 0.1);
        EXPECT_EQ(residual, record.residual);
        EXPECT_NEAR(c.frequency, record.tunedFrequency + residual, 1e-3);
    }
    LoTuning record;
    plan.PlanTuning(1e9, 10694444.4, true, -1, record, 1);
    EXPECT_NEAR(1010700000.0, record.loFrequency, 1.0);
}

TEST(TuningPlan, FirstMixerOfTheWideFamily) {
    LoTuning record;
    record.path = 0;
    // Not the wide family: band and path count for nothing.
    TuningPlan().PlanTuning(3e9, 0.0, true, -1, record, 2);
    EXPECT_EQ(300, record.integer);

    const DeviceFamily wide(DeviceTypeOrskB);
    const TuningPlan plan(wide);
    plan.PlanTuning(3e9, 0.0, true, -1, record, 2);  // bands 2, 3: first LO above the input
    EXPECT_EQ(480, record.integer);
    record.path = 3;
    plan.PlanTuning(1.1e10, 0.0, true, -1, record, 4);  // band 4 and above: below it
    EXPECT_EQ(220, record.integer);
    plan.PlanTuning(3e9, 0.0, true, -1, record, 1);  // band 1 goes straight through
    EXPECT_EQ(300, record.integer);
    EXPECT_EQ(0, OrskPathForBand(2));
    EXPECT_EQ(0, OrskPathForBand(4));
    EXPECT_EQ(3, OrskPathForBand(3));
}

TEST(TuningPlan, NonsenseFrequenciesEndWithoutATrap) {
    const TuningPlan plan;
    LoTuning record;
    for (const double f : {0.0, -5e9, 1e-300, 1e300}) {
        const double residual = plan.PlanTuning(f, 0.0, true, -1, record, 1);
        EXPECT_GE(record.modulus, 2);
        (void)residual;
    }
}

}  // namespace
}  // namespace qor
