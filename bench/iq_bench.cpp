// The I/Q stream: host time against the instrument time it stands for, one
// block of 16384 samples (33.7 ms) at a time. "x_realtime" is seconds of
// samples per second of host time.
//
// BM_IQDecimator: the decimation chain alone on one block, from the
// library's class, in CPU time of one core (goal: at least 200).
// BM_IQStream: the engine through the C API on the virtual instrument of the
// build (immediate pacing), one output block per get, in wall time while the
// engine's thread produces (goal: at least 100); the instrument's rendering
// of the samples is included, and "CPU" is that of the whole process;
// "host_x" takes the rendering off: the library's own work, per second of
// samples that the engine processed (the instrument's count of the blocks it
// rendered; one unit streams at a time). The engine drops what the reader
// leaves behind: "loss_flags" counts the gets told so, and the rate counts
// only what was delivered.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "bench_device.h"
#include "iq_decimator.h"
#include "iq_stream.h"
#include "qor_api.h"
#include "rbw_filter.h"
#include "sim_control.h"

namespace {

constexpr double kBlockSeconds = qorbench::kIqInputBlock / qor::kSampleRate;
// The default bench's units with calibration on board.
constexpr unsigned kVelmSerial = 12000002, kOrskSerial = 14000004;

void BM_IQDecimator(benchmark::State& state) {
    const int decimation = static_cast<int>(state.range(0));
    qor::IQDecimator decimator(qorbench::DecimationOrder(decimation),
                               qorbench::WidestBandwidth(decimation) / qor::kSampleRate);
    const std::vector<double> flat(qor::IQDecimator::kCorrectionBins, 0.0);
    decimator.ApplyCorrections(flat.data());
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1e-3);
    std::vector<Ipp64fc> block(qorbench::kIqInputBlock);
    std::vector<Ipp64fc> out(static_cast<std::size_t>(qorbench::kIqInputBlock / decimation));
    for (auto& x : block) x = {noise(random), noise(random)};
    for (auto _ : state) {
        decimator.Process(block.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["x_realtime"] = benchmark::Counter(kBlockSeconds, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_IQDecimator)->ArgName("D")->Arg(1)->Arg(2)->Arg(8)->Arg(16)->Arg(128)->Unit(benchmark::kMicrosecond);

// Args: family (1 the 4.4 GHz unit, 2 the 12.4 GHz unit), decimation D.
void BM_IQStream(benchmark::State& state) {
    const int device = qorbench::BenchDevice(state.range(0) == 2 ? kOrskSerial : kVelmSerial);
    if (device < 0) {
        state.SkipWithError("no virtual instrument (QOR_D2XX_LIBRARY)");
        return;
    }
    const int decimation = static_cast<int>(state.range(1));
    if (qorbench::StartIq(device, decimation) < 0) {
        state.SkipWithError("the I/Q mode did not start");
        return;
    }
    qorbench::IqBlockReader reader(device, decimation);
    reader.Next(true);  // the first block also waits for the level and the tuning
    const long long blocksBefore = qorbench::Sim()->renderedBlocks();
    const qorbench::HostCpu host;
    for (auto _ : state) {
        if (reader.Next() != qorNoError) state.SkipWithError("get failed");
    }
    const double hostSeconds = host.Seconds();
    const long long blocks = qorbench::Sim()->renderedBlocks() - blocksBefore;
    qorAbort(device);
    state.counters["host_x"] = static_cast<double>(blocks) * 512 / qor::kSampleRate / hostSeconds;
    state.counters["x_realtime"] = benchmark::Counter(kBlockSeconds, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["loss_flags"] = reader.LossFlags();
}
BENCHMARK(BM_IQStream)
    ->ArgNames({"family", "D"})
    ->ArgsProduct({{1, 2}, {1, 2, 8, 16, 128}})
    ->Unit(benchmark::kMicrosecond)
    ->MinTime(2.0)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace
