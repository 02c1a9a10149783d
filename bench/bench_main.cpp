// Runs the benchmarks and then prints the ratios that compare our code with
// its peers and with real time, from the times measured in this same run.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

constexpr double kSampleRate = 486111.1111111111;

// Keeps the time per iteration and the rates of every run while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
            const std::string name = run.benchmark_name();
            times_[name] = run.GetAdjustedCPUTime();
            const auto items = run.counters.find("items_per_second");
            if (items != run.counters.end()) rates_[name] = items->second.value;
            const auto error = run.counters.find("err_vs_fftw");
            if (error != run.counters.end()) errors_[name] = error->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void PrintSummary() const {
        std::printf("\nFFT CPU time ratio to FFTW (goal: at most 1.5 up to 65536, 2 above), times in us:\n");
        std::map<long long, double> ourTimes;
        for (const auto& [name, time] : times_) {
            if (name.rfind("BM_Fft/", 0) == 0) ourTimes[std::stoll(name.substr(7))] = time;
        }
        for (const auto& [points, ours] : ourTimes) {
            const std::string size = std::to_string(points);
            const auto peer = times_.find("BM_FftwFft/" + size);
            if (peer == times_.end()) continue;
            const auto error = errors_.find("BM_FftwFft/" + size);
            std::printf("  N = %-9s ours %12.3f  fftw %12.3f  ratio %.2f  error vs fftw %.2e\n", size.c_str(), ours,
                        peer->second, ours / peer->second, error == errors_.end() ? 0.0 : error->second);
        }
        std::printf("\nThroughput:\n");
        for (const char* fir : {"BM_FirLong", "BM_FirShort"}) {
            const auto rate = rates_.find(fir);
            if (rate == rates_.end()) continue;
            std::printf("  %-12s %.3g samples/s = %.1f x real time (goal for the long filter: 100)\n", fir, rate->second,
                        rate->second / kSampleRate);
        }
        const auto spectra = rates_.find("BM_Spectrum256");
        if (spectra != rates_.end()) {
            std::printf("  %-12s %.0f spectra/s (goal: 300000)\n", "BM_Spectrum256", spectra->second);
        }
    }

private:
    std::map<std::string, double> times_, rates_, errors_;
};

}  // namespace

int main(int argc, char** argv) {
#ifdef QOR_SIM_LIBRARY
    // The sweep benchmarks run on the virtual instrument of the build, unless
    // the user names another D2XX library; the library reads the name when it
    // first reaches the bus.
    setenv("QOR_D2XX_LIBRARY", QOR_SIM_LIBRARY, 0);
#endif
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary();
    benchmark::Shutdown();
    return 0;
}
