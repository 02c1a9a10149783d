// The narrow-span sweep: host time against the instrument time it stands for.
// "x_realtime" is seconds of samples per second of host time: how many units
// one core keeps up with.
//
// BM_SlowSpectrum: the processing of one capture (window, FFTs, video
// average, detector), from the library's classes.
// BM_SlowSweep: whole sweeps through the C API on the virtual instrument of
// the build (immediate pacing), the instrument's sample rendering included;
// with rejection a sweep is two captures. "host_x" takes the rendering off,
// counts every sweep the free-running engine measured by the samples it read
// and sets the host's CPU against the longer of their time and the command
// pauses; "samples_x" against the samples' time alone.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "bench_device.h"
#include "qor_api.h"
#include "rbw_filter.h"
#include "smart_array.h"
#include "spectrum_core.h"

namespace {

constexpr unsigned kSerial = 12000002;  // the default bench's 4.4 GHz unit, a -30 dBm tone at 1 GHz

int SampleCount(int fftSize) { return (fftSize + 767) / 512 * 512; }

void BM_SlowSpectrum(benchmark::State& state) {
    const double rbw = static_cast<double>(state.range(0));
    qor::RbwFilter filter(rbw, qor::RbwShapeFlatTop, qor::kSampleRate, qor::UnitsLog, false);
    const int samples = SampleCount(filter.fftSize);
    qor::SpectrumCore core(&filter, qor::DetectorMinMax, 1.0, samples, false);
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1e-3);
    qor::smart_array<Ipp64fc> block(samples);  // aligned, as an engine's capture buffer
    for (int i = 0; i < samples; ++i) block[i] = {noise(random), noise(random)};
    std::vector<double> min(static_cast<size_t>(filter.fftSize)), max(min.size());
    // An engine reuses its buffers from capture to capture: their first
    // touch is not part of a capture's cost.
    core.Process(block.get(), min.data(), max.data(), false);
    for (auto _ : state) {
        core.Process(block.get(), min.data(), max.data(), false);
        benchmark::DoNotOptimize(max.data());
    }
    state.counters["x_realtime"] =
        benchmark::Counter(samples / qor::kSampleRate, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_SlowSpectrum)->Arg(120000)->Arg(10000)->Arg(1000)->Arg(100)->Arg(10)->Arg(1)
    ->Unit(benchmark::kMillisecond);

void BM_SlowSweep(benchmark::State& state) {
    const int device = qorbench::BenchDevice(kSerial);
    if (device < 0) {
        state.SkipWithError("no virtual instrument (QOR_D2XX_LIBRARY)");
        return;
    }
    const double rbw = static_cast<double>(state.range(0));
    const bool reject = state.range(1) != 0;
    qorConfigCenterSpan(device, 1.0e9 + 0.2 * std::min(rbw * 100, 200e3), std::min(rbw * 100, 200e3));
    qorConfigSweepCoupling(device, rbw, rbw, reject);
    if (qorInitiate(device, ModeSweep) < 0) {
        state.SkipWithError("qorInitiate failed");
        return;
    }
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<double> min(static_cast<size_t>(length)), max(min.size());
    qorGetSweep_64f(device, min.data(), max.data());  // the first sweep also settles the level
    const qorbench::HostCpu host(kSerial);
    for (auto _ : state) {
        if (qorGetSweep_64f(device, min.data(), max.data()) != qorNoError) state.SkipWithError("sweep failed");
    }
    const double hostSeconds = host.Seconds();
    // The engine runs free: it may measure more sweeps than the gets collect,
    // and all of them cost host time; the samples it read tell how many. A
    // unit takes at least the samples' time and at least the pauses its
    // commands owe (a capture's command, and with rejection the retuning):
    // with small captures the pauses are the longer.
    const double sampleSeconds = host.InstrumentSeconds();
    const double instrumentSeconds = std::max(sampleSeconds, host.PauseSeconds());
    qorAbort(device);
    state.counters["host_x"] = instrumentSeconds / hostSeconds;
    state.counters["samples_x"] = sampleSeconds / hostSeconds;
    state.counters["x_realtime"] = benchmark::Counter(instrumentSeconds, benchmark::Counter::kIsRate);
    const qor::RbwGeometry g = qor::RbwGeometryFor(rbw, qor::RbwShapeFlatTop, qor::kSampleRate, false);
    const double sweepSamplesSeconds = (reject ? 2 : 1) * SampleCount(g.fftSize) / qor::kSampleRate;
    state.counters["sweeps_per_get"] = sampleSeconds / (sweepSamplesSeconds * static_cast<double>(state.iterations()));
}
BENCHMARK(BM_SlowSweep)
    ->Args({10000, 0})->Args({1000, 0})->Args({1000, 1})->Args({100, 0})->Args({10, 0})->Args({1, 0})
    ->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
