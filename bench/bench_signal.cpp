// Filters and the display loop, as items (samples or spectra) per second.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "ipps.h"

namespace {

constexpr int kBlock = 16384;

std::vector<Ipp64fc> RandomComplex(int n, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    std::vector<Ipp64fc> x(n);
    for (auto& v : x) v = {u(rng), u(rng)};
    return x;
}

// A complex double FIR on 16384-sample blocks, in place as the decimation chain runs it.
void RunFir(benchmark::State& state, int taps) {
    const std::vector<Ipp64fc> h = RandomComplex(taps, 1);
    std::vector<Ipp64fc> x = RandomComplex(kBlock, 2);
    int size = 0;
    ippsFIRGetStateSize_64fc(taps, &size);
    Ipp8u* memory = ippsMalloc_8u(size);
    IppsFIRState_64fc* fir = nullptr;
    ippsFIRInit_64fc(&fir, h.data(), taps, nullptr, memory);
    for (auto _ : state) {
        ippsFIR_64fc(x.data(), x.data(), kBlock, fir);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBlock);
    ippsFree(memory);
}

void BM_FirLong(benchmark::State& state) { RunFir(state, 2048); }
BENCHMARK(BM_FirLong)->Unit(benchmark::kMicrosecond);

void BM_FirShort(benchmark::State& state) { RunFir(state, 64); }
BENCHMARK(BM_FirShort)->Unit(benchmark::kMicrosecond);

// Window, FFT of 256 in place, power, natural log and scaling to dB.
void BM_Spectrum256(benchmark::State& state) {
    constexpr int n = 256;
    int specSize = 0, initSize = 0, workSize = 0;
    ippsFFTGetSize_C_64fc(8, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, &specSize, &initSize, &workSize);
    Ipp8u* specMemory = ippsMalloc_8u(specSize);
    Ipp8u* initMemory = ippsMalloc_8u(initSize);
    Ipp8u* work = ippsMalloc_8u(workSize);
    IppsFFTSpec_C_64fc* spec = nullptr;
    ippsFFTInit_C_64fc(&spec, 8, IPP_FFT_DIV_FWD_BY_N, ippAlgHintFast, specMemory, initMemory);
    std::vector<Ipp64f> window(n, 1.0);
    ippsWinBlackmanStd_64f_I(window.data(), n);
    std::vector<Ipp64fc> complexWindow(n), samples = RandomComplex(n, 3), spectrum(n);
    for (int i = 0; i < n; ++i) complexWindow[i] = {window[i], 0.0};
    std::vector<Ipp64f> power(n);
    for (auto _ : state) {
        ippsMul_64fc(samples.data(), complexWindow.data(), spectrum.data(), n);
        ippsFFTFwd_CToC_64fc(spectrum.data(), spectrum.data(), spec, work);
        ippsPowerSpectr_64fc(spectrum.data(), power.data(), n);
        ippsLn_64f(power.data(), power.data(), n);
        ippsMulC_64f_I(4.342944819032518, power.data(), n);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
    ippsFree(specMemory);
    ippsFree(initMemory);
    ippsFree(work);
}
BENCHMARK(BM_Spectrum256);

}  // namespace
