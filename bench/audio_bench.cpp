// The audio mode's signal path: one turn of 65536 samples (134.8 ms of the
// stream) through the mix, the channel filter, the demodulator, the audio
// filters and the sampling down, as the engine's thread runs it, in CPU time
// of one core. "x_realtime" is seconds of stream per second of CPU (goal: at
// least 100 for every type with the longest channel filter, 4096 taps below
// 1 kHz of bandwidth).
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "audio_chain.h"
#include "rbw_filter.h"
#include "settings.h"

namespace {

// Args: audio type (0 AM, 1 FM, 2 USB, 3 LSB, 4 CW), channel bandwidth in Hz.
void BM_AudioTurn(benchmark::State& state) {
    qor::Settings s;
    s.audioType = static_cast<int>(state.range(0));
    s.audioBandwidth = static_cast<double>(state.range(1));
    s.audioLowPass = 6000.0;
    s.audioHighPass = 100.0;
    qor::AudioLevels levels;
    qor::AudioChain chain(s, 1234.5, levels);
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0.0, 1e-3);
    std::vector<Ipp64fc> read(qor::AudioChain::kReadSamples);
    for (auto& x : read) x = {noise(random), noise(random)};
    std::vector<float> block(qor::AudioChain::kBlockSamples);
    for (auto _ : state) {
        while (!chain.Take(read.data())) {
        }
        chain.Run(block.data());
        benchmark::DoNotOptimize(block.data());
    }
    state.counters["taps"] = chain.ChannelTaps();
    state.counters["x_realtime"] = benchmark::Counter(qor::AudioChain::kTurnSamples / qor::kSampleRate,
                                                      benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_AudioTurn)
    ->ArgNames({"type", "bw"})
    ->ArgsProduct({{0, 1, 2, 3, 4}, {500, 200000}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
