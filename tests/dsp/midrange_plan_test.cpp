// The hopped sweeps' step grid and the midrange frame on synthetic data
// (rejection is measured end to end).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "engine_midrange.h"
#include "rbw_filter.h"
#include "spectrum_core.h"
#include "step_sweep.h"

namespace {

using qor::EdgeScale;
using qor::MidrangePlan;
using qor::PlanMidrange;
using qor::PlanStepGrid;
using qor::StepGrid;

// The fast sweep's tests hold the grid's numbers; here the midrange form,
// whose sum stays on the divided scale.
TEST(StepGrid, DividedScaleMultipliesTheWholeSum) {
    const double ratio = 1.0 + 2e-6;
    const StepGrid g = PlanStepGrid(1e9, 1.01e9, 10e6, 1024, ratio, EdgeScale::Divided);
    EXPECT_DOUBLE_EQ(g.stepBin * ratio, g.binSize);
    const double edge = g.stepStart * 200000.0 - 10.7e6 - (g.binsPerStep / 2) * g.stepBin;
    EXPECT_NEAR((edge + g.firstBin * g.stepBin) * ratio, g.startFreq, 1e-6);
    EXPECT_NEAR(1e9, g.startFreq, g.binSize / 2);
}

TEST(StepGrid, SlicesOfTheFirstAndLastSteps) {
    StepGrid g;
    g.binsPerStep = 10;
    g.firstBin = 13;  // more than a step: step 0 adds nothing
    g.sweepLength = 25;
    const qor::StepSlice first = qor::SliceOfStep(g, 0, 16);
    EXPECT_LE(first.count, 0);
    const qor::StepSlice second = qor::SliceOfStep(g, 1, 16);
    EXPECT_EQ(0, second.to);
    EXPECT_EQ(3 + 3, second.from);  // N/2 - bps/2, moved by the 3 bins left out
    EXPECT_EQ(7, second.count);
    const qor::StepSlice last = qor::SliceOfStep(g, 4, 16);
    EXPECT_EQ(27, last.to);
    EXPECT_LE(last.count, 0) << "the trace ends before this step";
    EXPECT_EQ(8, qor::SliceOfStep(g, 3, 16).count) << "cut at sweepLength";
}

// Stop frequencies that give a start of 1 GHz exactly 250 and 251 steps.
constexpr double kStart = 1000e6;
constexpr double kStop250 = 1049.7e6;
constexpr double kStop251 = 1049.9e6;

MidrangePlan Plan(double stop, bool reject) {
    return PlanMidrange(kStart, stop, stop - kStart, 1024, 1.0, reject, 1280);
}

TEST(MidrangePlan, SegmentsOfAtMost250Steps) {
    const MidrangePlan one = Plan(kStop250, false);
    ASSERT_EQ(250, one.stepCount);
    EXPECT_EQ(std::vector<int32_t>{250}, one.segmentLength);
    EXPECT_EQ(std::vector<int32_t>{one.grid.stepStart}, one.segmentStart);

    const MidrangePlan two = Plan(kStop251, false);
    ASSERT_EQ(251, two.stepCount);
    EXPECT_EQ((std::vector<int32_t>{250, 1}), two.segmentLength);
    EXPECT_EQ(two.grid.stepStart + 250, two.segmentStart[1]);
    EXPECT_EQ(0, two.partner);
    EXPECT_EQ(251, two.steps);

    // With rejection the frame begins 107 steps lower: 358 steps, 250 + 108.
    const MidrangePlan rejected = Plan(kStop251, true);
    EXPECT_FALSE(rejected.shortSpan);
    EXPECT_EQ(358, rejected.stepCount);
    EXPECT_EQ(107, rejected.partner);
    EXPECT_EQ(251, rejected.steps);
    EXPECT_EQ(rejected.grid.stepStart - 107, rejected.firstStep);
    EXPECT_EQ((std::vector<int32_t>{250, 108}), rejected.segmentLength);
    EXPECT_EQ((std::vector<int32_t>{rejected.firstStep, rejected.firstStep + 250}), rejected.segmentStart);
}

// A synthetic frame through the frame processor.
class FrameProcessing : public ::testing::Test {
protected:
    void Build(double start, double stop, double rbwToVbw, int detector) {
        filter = std::make_unique<qor::RbwFilter>(10e3, 1, qor::kSampleRate, 0, false);
        const int samples = (filter->fftSize * 4 + 767) / 512 * 512;
        core = std::make_unique<qor::SpectrumCore>(filter.get(), detector, rbwToVbw, samples, true);
        plan = PlanMidrange(start, stop, stop - start, filter->fftSize, 1.0, false, core->sampleCount);
        // A floor of small noise, 130 dB under the tones: no bin is an exact 0 (minus infinity in dB).
        frame.resize(static_cast<size_t>(plan.FrameSamples()));
        for (size_t t = 0; t < frame.size(); ++t) frame[t] = {1e-7 * (t * 7919 % 13 - 6.0), 1e-7 * (t * 104729 % 11 - 5.0)};
        processor = std::make_unique<qor::MidrangeFrameProcessor>(plan, core.get(), filter->fftSize, false);
        corrections = std::make_unique<qor::StepCorrections>(nullptr, plan.grid, 0.0, false);  // all 0 dB
        minTrace.assign(static_cast<size_t>(plan.grid.sweepLength), 0.0);
        maxTrace = minTrace;
    }
    // A tone at RF `f` added to the trace step whose LO lies above it by the IF.
    void AddTone(double f, double amplitude) {
        const int i = static_cast<int>(std::floor((f + 10.7e6) / 200e3 + 0.5)) - plan.grid.stepStart;
        const double lo = (plan.grid.stepStart + i) * 200000.0;
        const double cycles = (f - (lo - 10.7e6) - qor::kMixOffset) / qor::kSampleRate;  // after the mix
        Ipp64fc* step = frame.data() + static_cast<size_t>(i + plan.partner) * plan.StepSamples();
        for (int t = 0; t < plan.StepSamples(); ++t) {
            step[t].re += amplitude * std::cos(2 * M_PI * cycles * t);
            step[t].im += amplitude * std::sin(2 * M_PI * cycles * t);
        }
    }

    std::unique_ptr<qor::RbwFilter> filter;
    std::unique_ptr<qor::SpectrumCore> core;
    MidrangePlan plan;
    std::vector<Ipp64fc> frame;
    std::unique_ptr<qor::MidrangeFrameProcessor> processor;
    std::unique_ptr<qor::StepCorrections> corrections;
    std::vector<double> minTrace, maxTrace;
};

// Single frames, a video average over frames, and the average detector:
// the spectra's middle bins, all the trace takes, are worked out alike.
TEST_F(FrameProcessing, ToneLandsOnItsBin) {
    for (const auto& [ratio, detector] : {std::pair{1.0, 0}, std::pair{2.0, 0}, std::pair{1.0, 1}}) {
        SCOPED_TRACE(testing::Message() << "RBW/VBW " << ratio << " detector " << detector);
        Build(1000e6, 1002e6, ratio, detector);
        const double f = 1001.2345e6;
        AddTone(f, 0.1);
        processor->ProcessFrame(frame.data());
        processor->Publish(*corrections, minTrace.data(), maxTrace.data());
        const size_t peak = static_cast<size_t>(std::max_element(maxTrace.begin(), maxTrace.end()) - maxTrace.begin());
        EXPECT_NEAR(f, plan.grid.startFreq + peak * plan.grid.binSize, plan.grid.binSize * 1.5);
        EXPECT_NEAR(-20.0 + 3.01, maxTrace[peak], 0.3) << "the window's 3 dB, uncorrected";
        EXPECT_NEAR(minTrace[peak], maxTrace[peak], 0.1);
    }
}

}  // namespace
