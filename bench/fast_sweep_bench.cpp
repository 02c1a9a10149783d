// The hopped sweep: host time against the instrument time it stands for, one
// 512-sample block (1.05 ms) per LO step. "x_realtime" is seconds of samples
// per second of host time: how many units one core keeps up with.
//
// BM_FastStepSpectrum: the spectra of one step (mix, window, FFT frames,
// video average, detector; twice with rejection), from the library's classes.
// BM_FastSweep: whole sweeps through the C API on the virtual instrument of
// the build (immediate pacing), the instrument's rendering of the blocks and
// the link's reads included, in CPU time of all threads; "step" is that time
// per hop step and "limit_s" the instrument time of one sweep (steps x 512 /
// 486111.11 s). The wall time of a sweep is the line's "Time". "host_x" takes
// the instrument's rendering off: the library's own work, x real time.
#include <benchmark/benchmark.h>

#include <numeric>
#include <random>
#include <vector>

#include "bench_device.h"
#include "engine_fast.h"
#include "qor_api.h"
#include "rbw_filter.h"
#include "spectrum_core.h"

namespace {

constexpr int kBlock = 512;
constexpr double kBlockSeconds = kBlock / qor::kSampleRate;
// The default bench's units with calibration on board.
constexpr unsigned kVelmSerial = 12000002, kOrskSerial = 14000004;

void BM_FastStepSpectrum(benchmark::State& state) {
    const double rbw = static_cast<double>(state.range(0));
    const bool reject = state.range(1) != 0;
    qor::RbwFilter filter(rbw, qor::RbwShapeFlatTop, qor::kSampleRate, qor::UnitsLog, true);
    qor::SpectrumCore core(&filter, qor::DetectorMinMax, 1.0, kBlock, true);
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1e-3);
    std::vector<Ipp64fc> block(kBlock), partner(kBlock), tone(kBlock);
    for (auto& x : block) x = {noise(random), noise(random)};
    partner = block;
    double phase = 0.0;
    ippsTone_64fc(tone.data(), kBlock, 1.0, 0.011428571428571429, &phase, ippAlgHintFast);
    std::vector<double> minA(static_cast<size_t>(filter.fftSize)), maxA(minA.size()), minB(minA.size()),
        maxB(minA.size());
    for (auto _ : state) {
        ippsMul_64fc_I(tone.data(), block.data(), kBlock);
        core.Process(block.data(), minA.data(), maxA.data(), false);
        if (reject) {
            ippsConj_64fc(partner.data(), partner.data(), kBlock);
            core.Process(partner.data(), minB.data(), maxB.data(), false);
            ippsMinEvery_64f(minA.data(), minB.data(), minA.data(), filter.fftSize);
        }
        benchmark::DoNotOptimize(minA.data());
    }
    state.counters["x_realtime"] = benchmark::Counter(kBlockSeconds, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_FastStepSpectrum)
    ->ArgsProduct({{6500, 30000, 100000, 200000, 250000}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

// Blocks the unit delivers for one sweep: the segments, and the low-band pass.
int BlocksPerSweep(double start, double stop, double rbw, bool reject) {
    const qor::RbwGeometry g = qor::RbwGeometryFor(rbw, qor::RbwShapeFlatTop, qor::kSampleRate, true);
    const qor::FastSweepPlan plan = qor::PlanFastSweep(start, stop, stop - start, g.fftSize, 1.0, reject);
    const int segments = std::accumulate(plan.segmentLength.begin(), plan.segmentLength.end(), 0);
    return segments + (plan.lowSteps > 0 ? plan.lowSteps + 1 : 0);
}

// Args: family (1 the 4.4 GHz unit, 2 the 12.4 GHz unit), span in MHz (0: the
// family's full range from 1 MHz), RBW, rejection.
void BM_FastSweep(benchmark::State& state) {
    const bool orsk = state.range(0) == 2;
    const int device = qorbench::BenchDevice(orsk ? kOrskSerial : kVelmSerial);
    if (device < 0) {
        state.SkipWithError("no virtual instrument (QOR_D2XX_LIBRARY)");
        return;
    }
    const bool fullRange = state.range(1) == 0;
    const double from = fullRange ? 1e6 : 1e9;
    const double stop = fullRange ? (orsk ? 12.4e9 : 4.4e9) : 1e9 + state.range(1) * 1e6;
    const double rbw = static_cast<double>(state.range(2));
    const bool reject = state.range(3) != 0;
    qorConfigCenterSpan(device, (from + stop) / 2, stop - from);
    qorConfigSweepCoupling(device, rbw, rbw, reject);
    if (qorInitiate(device, ModeSweep) < 0) {
        state.SkipWithError("qorInitiate failed");
        return;
    }
    int length = 0;
    double startFreq = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &startFreq, &bin);
    std::vector<float> min(static_cast<size_t>(length)), max(min.size());
    qorGetSweep_32f(device, min.data(), max.data());
    const qorbench::HostCpu host;
    for (auto _ : state) {
        if (qorGetSweep_32f(device, min.data(), max.data()) != qorNoError) state.SkipWithError("sweep failed");
    }
    const double hostSeconds = host.Seconds();
    qorAbort(device);
    const int blocks = BlocksPerSweep(from, stop, rbw, reject);
    const double instrumentSeconds = blocks * kBlockSeconds;
    state.counters["host_x"] = instrumentSeconds * static_cast<double>(state.iterations()) / hostSeconds;
    state.counters["x_realtime"] =
        benchmark::Counter(instrumentSeconds, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["step"] =
        benchmark::Counter(blocks, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["limit_s"] = instrumentSeconds;
}
BENCHMARK(BM_FastSweep)
    ->Args({1, 100, 6500, 0})
    ->Args({1, 100, 6500, 1})
    ->Args({1, 0, 30000, 0})
    ->Args({1, 0, 100000, 0})
    ->Args({1, 0, 250000, 0})
    ->Args({1, 0, 100000, 1})
    ->Args({2, 100, 6500, 0})
    ->Args({2, 0, 30000, 0})
    ->Args({2, 0, 100000, 0})
    ->Args({2, 0, 250000, 0})
    ->Args({2, 0, 100000, 1})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

}  // namespace
