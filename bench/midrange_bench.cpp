// Host processing of a midrange frame against its instrument time: the
// processor's whole work on one frame (mix, spectra, views, corrections and
// merge) on noise, for RBWs across the engine's range. The counter
// x_realtime is instrument seconds per CPU second (goal: at least 50).
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "engine_midrange.h"
#include "engine_rule.h"
#include "rbw_filter.h"
#include "spectrum_core.h"
#include "step_sweep.h"

namespace {

constexpr double kStart = 1000e6;
constexpr double kSpan = 4e6;  // 20 steps: the cost of a frame grows with its steps alike

void FillNoise(std::vector<Ipp64fc>& frame) {
    std::mt19937_64 rng(7);
    std::normal_distribution<double> gauss(0.0, 1e-3);
    for (Ipp64fc& x : frame) x = {gauss(rng), gauss(rng)};
}

// state.range(0): RBW in Hz; range(1): RBW / VBW; range(2): rejection.
void BM_MidrangeFrame(benchmark::State& state) {
    const double rbw = static_cast<double>(state.range(0));
    const bool reject = state.range(2) != 0;
    qor::RbwFilter filter(rbw, qor::RbwShapeFlatTop, qor::kSampleRate, 0, false);
    bool limited = false;
    const int ratio = qor::RbwToVbwRatio(qor::SweepEngineKind::Midrange, rbw,
                                         rbw / static_cast<double>(state.range(1)), filter.fftSize, &limited);
    qor::SpectrumCore core(&filter, 0, ratio, qor::SweepSampleCount(filter.fftSize, ratio), true);
    const qor::MidrangePlan plan =
        qor::PlanMidrange(kStart, kStart + kSpan, kSpan, filter.fftSize, 1.0, reject, core.sampleCount);
    qor::MidrangeFrameProcessor processor(plan, &core, filter.fftSize, reject);
    qor::StepCorrections corrections(nullptr, plan.grid, 0.0, reject);
    std::vector<Ipp64fc> frame(static_cast<size_t>(plan.FrameSamples()));
    FillNoise(frame);
    std::vector<double> minTrace(static_cast<size_t>(plan.grid.sweepLength));
    std::vector<double> maxTrace(minTrace.size());
    for (auto _ : state) {
        processor.ProcessFrame(frame.data());
        processor.Publish(corrections, minTrace.data(), maxTrace.data());
        benchmark::DoNotOptimize(maxTrace.data());
    }
    const double frameSeconds = plan.FrameSamples() / qor::kSampleRate;
    state.counters["x_realtime"] =
        benchmark::Counter(frameSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["blocks_per_step"] = plan.blocksPerStep;
    state.counters["fft"] = filter.fftSize;
}
BENCHMARK(BM_MidrangeFrame)
    ->ArgNames({"rbw", "rbw_vbw", "reject"})
    ->Args({30, 1, 0})
    ->Args({30, 1, 1})
    ->Args({300, 1, 1})
    ->Args({3000, 1, 1})
    ->Args({3000, 32, 1})
    ->Args({30000, 1, 1})
    ->Args({30000, 100, 1})
    ->Args({100000, 1, 1})
    ->Args({200000, 1, 1})
    ->Args({250000, 1, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace
