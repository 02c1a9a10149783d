// The real-time mode's processing thread, from the library's classes, in CPU
// time of one core.
//
// BM_RealTimeSpectra: one spectrum per iteration as the processing thread
// makes it (window, FFT, the span's power, condensing into the frame, and
// the frame's finishing every spectraPerFrame spectra), at overlap 0.125
// and 30 frames per second over a 250 kHz span. "x_realtime" is spectra per
// second against those the stream asks for (15190 a second at N 256: goal
// at least 20, that is 300000 spectra per second).
// BM_RealTimeFrameFinish: the finishing of one frame (the rows of every
// entry, the histogram, the 39-frame sum and the alpha image) at the
// largest image, 8432 bins in 527 columns at RBW 100 Hz, with the 60
// spectra a frame of overlap 0.125 at 4 frames per second holds.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "engine_realtime_image.h"
#include "frame_imaging.h"
#include "rbw_filter.h"
#include "realtime_window.h"

namespace {

constexpr int kRing = 262144;

// A tone in noise, long enough for any window from any hop position.
std::vector<Ipp64fc> Samples() {
    std::vector<Ipp64fc> samples(kRing + 32768);
    std::mt19937 random(7);
    std::normal_distribution<double> noise(0.0, 1e-4);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 0.37 * static_cast<double>(i);
        samples[i] = {1e-2 * std::cos(phase) + noise(random), 1e-2 * std::sin(phase) + noise(random)};
    }
    return samples;
}

qor::FrameScale Scale() {
    qor::FrameScale s;
    s.refLevel = -20.0;
    s.frameScale = 100.0;
    return s;
}

// The widest RBW of an FFT size.
double RbwFor(int fftSize) { return 3.2 * qor::kSampleRate / fftSize * 1.001; }

void BM_RealTimeSpectra(benchmark::State& state) {
    qor::RealTimeWindow window(RbwFor(static_cast<int>(state.range(0))), qor::kSampleRate);
    const int fftSize = window.fftSize;
    const qor::RealTimeGeometry g = qor::RealTimeGeometryFor(fftSize, 0.125, 30, 250000.0);
    const std::vector<float> corrections(static_cast<std::size_t>(g.spanBins), -3.0f);
    const std::vector<float> ratios(corrections.size(), 0.7f);
    qor::FrameImager imager(g.spanBins, g.spectraPerFrame, Scale(), corrections.data(), ratios.data());
    const std::vector<Ipp64fc> samples = Samples();
    std::vector<Ipp32f> power(static_cast<std::size_t>(fftSize));
    int position = 0;
    for (auto _ : state) {
        window.SpanPower(samples.data() + position, g.firstBin, g.spanBins, power.data());
        imager.AddSpectrum(power.data());
        position += g.hop;
        if (position >= kRing) position -= kRing;
    }
    const double streamSpectra = qor::kSampleRate / g.hop;
    state.counters["spectra_per_s"] = benchmark::Counter(1.0, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["x_realtime"] = benchmark::Counter(1.0 / streamSpectra, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_RealTimeSpectra)->ArgName("N")->Arg(256)->Arg(2048)->Arg(16384)->Unit(benchmark::kMicrosecond);

void BM_RealTimeFrameFinish(benchmark::State& state) {
    const qor::RealTimeGeometry g = qor::RealTimeGeometryFor(16384, 0.125, 4, 250000.0);
    const std::vector<float> corrections(static_cast<std::size_t>(g.spanBins), -3.0f);
    const std::vector<float> ratios(corrections.size(), 0.7f);
    qor::FrameImager imager(g.spanBins, g.spectraPerFrame, Scale(), corrections.data(), ratios.data());
    std::mt19937 random(3);
    std::exponential_distribution<float> noise(1e7f);  // noise power about -70 dBm a bin
    std::vector<std::vector<Ipp32f>> spectra(static_cast<std::size_t>(g.spectraPerFrame),
                                             std::vector<Ipp32f>(static_cast<std::size_t>(g.spanBins)));
    for (auto& spectrum : spectra) {
        for (float& p : spectrum) p = noise(random);
    }
    std::vector<Ipp32f> power(static_cast<std::size_t>(g.spanBins));
    for (auto _ : state) {
        state.PauseTiming();
        for (int s = 0; s + 1 < g.spectraPerFrame; ++s) {
            power = spectra[static_cast<std::size_t>(s)];
            imager.AddSpectrum(power.data());
        }
        power = spectra.back();
        state.ResumeTiming();
        // The last spectrum of the frame: its condensing and the frame's finishing.
        benchmark::DoNotOptimize(imager.AddSpectrum(power.data()));
    }
    state.counters["columns"] = imager.Geometry().frameWidth;
    state.counters["entries"] = static_cast<double>(g.spanBins) * g.spectraPerFrame;
}
BENCHMARK(BM_RealTimeFrameFinish)->Unit(benchmark::kMicrosecond);

}  // namespace
