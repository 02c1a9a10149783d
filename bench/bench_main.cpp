// Runs the benchmarks and then prints the ratios that compare our code with
// its peers and with real time, from the times measured in this same run.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr double kSampleRate = 486111.1111111111;

// Keeps the time per iteration and the rates of every run while printing as usual.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0 || run.error_occurred) continue;
            const std::string name = run.benchmark_name();
            times_[name] = run.GetAdjustedCPUTime();
            const auto items = run.counters.find("items_per_second");
            if (items != run.counters.end()) rates_[name] = items->second.value;
            const auto error = run.counters.find("err_vs_fftw");
            if (error != run.counters.end()) errors_[name] = error->second.value;
            runs_.push_back({run.run_name.function_name + "/" + run.run_name.args, run.counters});
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void PrintSummary() const {
        PrintFft();
        PrintThroughput();
        PrintIq();
        PrintEngines();
    }

private:
    void PrintFft() const {
        std::printf("\nFFT CPU time ratio to FFTW (goal: at most 0.8), times in us:\n");
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
    }

    void PrintThroughput() const {
        std::printf("\nThroughput:\n");
        for (const char* fir : {"BM_FirLong", "BM_FirShort"}) {
            const auto rate = rates_.find(fir);
            if (rate == rates_.end()) continue;
            std::printf("  %-12s %.3g samples/s = %.1f x real time (goal for the long filter: 200)\n", fir, rate->second,
                        rate->second / kSampleRate);
        }
        const auto spectra = rates_.find("BM_Spectrum256");
        if (spectra != rates_.end()) {
            std::printf("  %-12s %.0f spectra/s (goal: 1000000)\n", "BM_Spectrum256", spectra->second);
        }
    }

    void PrintIq() const {
        PrintRealtimeFactors("BM_IQDecimator/", "x_realtime",
                             "I/Q decimation chain, x real time on one core (goal: at least 200):");
        PrintRealtimeFactors("BM_IQStream/", "host_x",
                             "I/Q engine through the C API, the library's own work, x real time (goal: at least 100):");
        for (const auto& [name, counters] : runs_) {
            if (name.rfind("BM_IQEightUnits", 0) != 0) continue;
            std::printf("I/Q, 8 units at D = 1 for 10 s: %.0f loss flags (goal: none), %.0f blocks lost by the "
                        "instrument, CPU %.1f%% of %.0f cores (goal: at most 25%%)\n",
                        counters.at("loss_flags").value, counters.at("lost_blocks").value,
                        100.0 * counters.at("cpu_share").value, counters.at("cores").value);
        }
    }

    // The `counter` of the I/Q runs whose name begins with `prefix`, by their arguments.
    void PrintRealtimeFactors(const std::string& prefix, const char* counter, const char* title) const {
        std::printf("\n%s\n", title);
        for (const auto& [name, counters] : runs_) {
            const auto x = counters.find(counter);
            if (name.rfind(prefix, 0) != 0 || x == counters.end()) continue;
            std::printf("  %-18s %6.1f\n", name.substr(prefix.size()).c_str(), x->second.value);
        }
    }

    // Each engine's slowest configuration: the host's own work on samples
    // (the instrument's rendering taken off), x real time on one core.
    void PrintEngines() const {
        struct Engine {
            const char* name;
            const char* prefix;
            const char* counter;
            double goal = 100.0;
        };
        const Engine engines[] = {
            {"slow, capture processing", "BM_SlowSpectrum/", "x_realtime"},
            {"slow, through the C API", "BM_SlowSweep/", "host_x"},
            {"fast, through the C API", "BM_FastSweep/", "host_x"},
            {"midrange, frame processing", "BM_MidrangeFrame/", "x_realtime"},
            {"real time, spectra at N = 256", "BM_RealTimeSpectra/N:256", "x_realtime", 20.0},
            {"I/Q, through the C API", "BM_IQStream/", "host_x"},
            {"audio, signal path", "BM_AudioTurn/", "x_realtime"},
        };
        std::printf("\nHost processing, each engine's worst case, x real time on one core, against its goal:\n");
        for (const Engine& engine : engines) {
            const std::string* worstName = nullptr;
            double worst = 0.0;
            for (const auto& [name, counters] : runs_) {
                const auto x = counters.find(engine.counter);
                if (name.rfind(engine.prefix, 0) != 0 || x == counters.end()) continue;
                if (!worstName || x->second.value < worst) {
                    worstName = &name;
                    worst = x->second.value;
                }
            }
            if (!worstName) continue;
            std::printf("  %-28s %7.1f  goal %4.0f  %-7s %s\n", engine.name, worst, engine.goal,
                        worst >= engine.goal ? "met" : "missed",
                        worstName->c_str());
        }
    }

    std::map<std::string, double> times_, rates_, errors_;
    // Function and arguments ("BM_IQStream/family:1/D:8") and counters of every run, in the order they ran.
    std::vector<std::pair<std::string, benchmark::UserCounters>> runs_;
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
