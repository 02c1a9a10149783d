// Our forward FFT with its division by N, and FFTW's measured plan with the
// same scaling pass as the fair peer. The FFTW case also reports our error
// against it, relative to the largest output.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "ipps.h"

#ifdef QOR_HAVE_FFTW
#include <fftw3.h>
#endif

namespace {

int OrderOf(int64_t n) {
    int order = 0;
    while ((int64_t{1} << order) < n) ++order;
    return order;
}

Ipp64fc* RandomSignal(int64_t n) {
    Ipp64fc* x = ippsMalloc_64fc(static_cast<int>(n));
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int64_t i = 0; i < n; ++i) x[i] = {u(rng), u(rng)};
    return x;
}

// One transform size with its three memories.
struct OurFft {
    explicit OurFft(int order) {
        int specSize = 0, initSize = 0, workSize = 0;
        ippsFFTGetSize_C_64fc(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, &specSize, &initSize, &workSize);
        specMemory = ippsMalloc_8u(specSize);
        initMemory = ippsMalloc_8u(initSize);
        work = ippsMalloc_8u(workSize);
        ippsFFTInit_C_64fc(&spec, order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, specMemory, initMemory);
    }
    ~OurFft() {
        ippsFree(specMemory);
        ippsFree(initMemory);
        ippsFree(work);
    }
    Ipp8u* specMemory;
    Ipp8u* initMemory;
    Ipp8u* work;
    IppsFFTSpec_C_64fc* spec = nullptr;
};

void FftSizes(benchmark::internal::Benchmark* b) {
    for (int64_t n : {256, 1024, 2048, 4096, 8192, 16384, 65536, 1048576, 16777216}) b->Arg(n);
    b->Unit(benchmark::kMicrosecond);
}

void BM_Fft(benchmark::State& state) {
    const int64_t n = state.range(0);
    OurFft fft(OrderOf(n));
    Ipp64fc* src = RandomSignal(n);
    Ipp64fc* dst = ippsMalloc_64fc(static_cast<int>(n));
    // One transform first brings every page in, as FFTW's measuring does for its arrays.
    ippsFFTFwd_CToC_64fc(src, dst, fft.spec, fft.work);
    for (auto _ : state) {
        ippsFFTFwd_CToC_64fc(src, dst, fft.spec, fft.work);
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
    ippsFree(src);
    ippsFree(dst);
}
BENCHMARK(BM_Fft)->Apply(FftSizes);

// A frame of the spectrum core: the window (a conjugated frame's product on
// the way in) and the forward transform, as one call.
void BM_FftWindowed(benchmark::State& state) {
    const int64_t n = state.range(0);
    const bool conjugate = state.range(1) != 0;
    OurFft fft(OrderOf(n));
    Ipp64fc* src = RandomSignal(n);
    Ipp64fc* window = RandomSignal(n);
    Ipp64fc* dst = ippsMalloc_64fc(static_cast<int>(n));
    ippsFFTFwdWindowed_CToC_64fc(src, window, conjugate, dst, fft.spec, fft.work);
    for (auto _ : state) {
        ippsFFTFwdWindowed_CToC_64fc(src, window, conjugate, dst, fft.spec, fft.work);
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
    ippsFree(src);
    ippsFree(window);
    ippsFree(dst);
}
BENCHMARK(BM_FftWindowed)->ArgsProduct({{256, 2048, 4096, 65536}, {0, 1}})->Unit(benchmark::kMicrosecond);

// Initialisation alone: twiddles computed, no planning by timing.
void BM_FftInit(benchmark::State& state) {
    const int order = OrderOf(state.range(0));
    int specSize = 0, initSize = 0, workSize = 0;
    ippsFFTGetSize_C_64fc(order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, &specSize, &initSize, &workSize);
    Ipp8u* specMemory = ippsMalloc_8u(specSize);
    Ipp8u* initMemory = ippsMalloc_8u(initSize);
    IppsFFTSpec_C_64fc* spec = nullptr;
    for (auto _ : state) {
        ippsFFTInit_C_64fc(&spec, order, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, specMemory, initMemory);
        benchmark::DoNotOptimize(spec);
    }
    ippsFree(specMemory);
    ippsFree(initMemory);
}
BENCHMARK(BM_FftInit)->Arg(1024)->Arg(65536)->Unit(benchmark::kMicrosecond);

#ifdef QOR_HAVE_FFTW
void BM_FftwFft(benchmark::State& state) {
    const int64_t n = state.range(0);
    auto* in = static_cast<fftw_complex*>(fftw_malloc(sizeof(fftw_complex) * n));
    auto* out = static_cast<fftw_complex*>(fftw_malloc(sizeof(fftw_complex) * n));
    fftw_plan plan = fftw_plan_dft_1d(static_cast<int>(n), in, out, FFTW_FORWARD, FFTW_MEASURE);
    Ipp64fc* x = RandomSignal(n);
    std::copy(&x[0].re, &x[0].re + 2 * n, &in[0][0]);
    const double scale = 1.0 / static_cast<double>(n);
    for (auto _ : state) {
        fftw_execute(plan);
        double* o = &out[0][0];
        for (int64_t i = 0; i < 2 * n; ++i) o[i] *= scale;
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);

    // Our result against FFTW's on the same input.
    fftw_execute(plan);
    OurFft fft(OrderOf(n));
    Ipp64fc* ours = ippsMalloc_64fc(static_cast<int>(n));
    ippsFFTFwd_CToC_64fc(x, ours, fft.spec, fft.work);
    double worst = 0.0, peak = 0.0;
    for (int64_t i = 0; i < n; ++i) {
        const double re = out[i][0] * scale, im = out[i][1] * scale;
        worst = std::max(worst, std::hypot(ours[i].re - re, ours[i].im - im));
        peak = std::max(peak, std::hypot(re, im));
    }
    state.counters["err_vs_fftw"] = worst / peak;
    ippsFree(ours);
    ippsFree(x);
    fftw_destroy_plan(plan);
    fftw_free(in);
    fftw_free(out);
}
BENCHMARK(BM_FftwFft)->Apply(FftSizes);
#endif

}  // namespace
