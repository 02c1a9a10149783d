// Eight units streaming I/Q at once at D = 1, paced in real time as hardware
// delivers, each read by its own thread; measured over 10 s once all stream.
// "loss_flags" counts the gets told of a loss, from each stream's first get
// on (goal: none); "lost_blocks" the blocks the instrument could not send
// because the host read too slowly, over the 10 s; "gets" the blocks read in
// all (one per 33.7 ms and unit when the streams keep time); "cpu_share" the
// process's CPU time over the 10 s as a share of all the machine's "cores"
// (goal: at most 0.25). The virtual instrument renders the samples in this
// process, so its work is in the share too.
//
// It runs once, on a bench of its own on the real clock, where each open takes
// seconds (port cycle): the units open in parallel before the measurement
// ("open_s"), and the bench in force before comes back afterwards.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "bench_device.h"
#include "iq_stream.h"
#include "qor_api.h"
#include "sim_control.h"

namespace {

constexpr double kWindowSeconds = 10.0;

struct BenchUnit {
    unsigned serial;
    int type;
};
constexpr BenchUnit kUnits[] = {{62000001, 2}, {64000002, 4}, {62000003, 2}, {64000004, 4},
                                {62000005, 2}, {64000006, 4}, {62000007, 2}, {64000008, 4}};
constexpr int kUnitCount = sizeof kUnits / sizeof kUnits[0];

// Each unit on the real clock with realtime pacing, a tone beside the stream's centre.
std::string RealtimeBenchJson() {
    std::string json = R"({"clock": "real", "pacing": "realtime", "units": [)";
    for (const BenchUnit& unit : kUnits) {
        json += (unit.serial == kUnits[0].serial ? "" : ", ");
        json += R"({"serial": )" + std::to_string(unit.serial) + R"(, "type": )" + std::to_string(unit.type) +
                R"(, "signals": [{"kind": "cw", "frequency": 1.00001e9, "level": -30.0}]})";
    }
    return json + "]}";
}

// The bench of this benchmark in force for the object's life; the one before,
// and no open device, afterwards.
class BenchSwap {
public:
    explicit BenchSwap(const qorbench::SimControl& sim) : sim(sim), saved(sim.benchJson()) {
        qorbench::CloseBenchDevices();
        loaded = sim.loadBenchJson(RealtimeBenchJson().c_str()) == 0;
    }
    ~BenchSwap() {
        qorbench::CloseBenchDevices();
        sim.loadBenchJson(saved.c_str());
    }
    BenchSwap(const BenchSwap&) = delete;
    BenchSwap& operator=(const BenchSwap&) = delete;

    bool Loaded() const { return loaded; }

private:
    const qorbench::SimControl& sim;
    const std::string saved;
    bool loaded = false;
};

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long long LostBlocks(const qorbench::SimControl& sim) {
    long long lost = 0;
    for (const BenchUnit& unit : kUnits) lost += sim.lostBlocks(unit.serial);
    return lost;
}

// The units of the bench, opened in parallel; false if one did not open.
bool OpenAll(std::vector<int>* devices) {
    devices->assign(kUnitCount, -1);
    std::vector<std::thread> openers;
    for (int u = 0; u < kUnitCount; ++u) {
        openers.emplace_back([devices, u] { (*devices)[u] = qorbench::BenchDevice(kUnits[u].serial); });
    }
    for (std::thread& opener : openers) opener.join();
    for (int device : *devices) {
        if (device < 0) return false;
    }
    return true;
}

// The streams of all units, each started and read by a thread of its own
// until Stop; the first get of each drops what came before it.
class Readers {
public:
    explicit Readers(const std::vector<int>& devices) {
        for (int device : devices) threads.emplace_back([this, device] { Read(device); });
    }
    ~Readers() { Stop(); }

    // Until every stream has had its first get or failed to start.
    void AwaitStarted() const {
        while (started.load() < static_cast<int>(threads.size())) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    void Stop() {
        stopping = true;
        for (std::thread& thread : threads) {
            if (thread.joinable()) thread.join();
        }
    }
    int LossFlags() const { return lossFlags.load(); }
    int Failures() const { return failures.load(); }
    int Gets() const { return gets.load(); }

private:
    void Read(int device) {
        qorbench::IqBlockReader reader(device, 1);
        const bool streaming = qorbench::StartIq(device, 1) >= 0 && reader.Next(true) == qorNoError;
        failures += !streaming;
        ++started;
        while (streaming && !stopping) {
            failures += reader.Next() != qorNoError;
            ++gets;
        }
        lossFlags += reader.LossFlags();
    }

    std::vector<std::thread> threads;
    std::atomic<bool> stopping{false};
    std::atomic<int> started{0}, lossFlags{0}, failures{0}, gets{0};
};

void BM_IQEightUnits(benchmark::State& state) {
    const qorbench::SimControl* sim = qorbench::Sim();
    if (!sim) {
        state.SkipWithError("no virtual instrument (QOR_D2XX_LIBRARY)");
        return;
    }
    BenchSwap swap(*sim);
    if (!swap.Loaded()) {
        state.SkipWithError(sim->lastError());
        return;
    }
    const auto openStart = std::chrono::steady_clock::now();
    std::vector<int> devices;
    if (!OpenAll(&devices)) {
        state.SkipWithError("a unit did not open");
        return;
    }
    const std::chrono::duration<double> openTime = std::chrono::steady_clock::now() - openStart;
    Readers readers(devices);
    readers.AwaitStarted();
    long long lost = 0;
    for (auto _ : state) {
        const long long lostBefore = LostBlocks(*sim);
        const double cpuBefore = CpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::duration<double>(kWindowSeconds));
        const double cpu = CpuSeconds() - cpuBefore;
        const std::chrono::duration<double> window = std::chrono::steady_clock::now() - start;
        lost = LostBlocks(*sim) - lostBefore;
        state.SetIterationTime(window.count());
        state.counters["cpu_share"] = cpu / (window.count() * std::thread::hardware_concurrency());
    }
    readers.Stop();
    if (readers.Failures() > 0) state.SkipWithError("a stream did not start or a get failed");
    state.counters["loss_flags"] = readers.LossFlags();
    state.counters["lost_blocks"] = static_cast<double>(lost);
    state.counters["gets"] = readers.Gets();
    state.counters["cores"] = std::thread::hardware_concurrency();
    state.counters["open_s"] = openTime.count();
}
BENCHMARK(BM_IQEightUnits)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
