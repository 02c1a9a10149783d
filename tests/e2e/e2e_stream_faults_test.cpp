// Bytes dropped from or garbled on the stream in the middle of a running
// mode, in every engine that reads samples: every get returns a defined
// status, no result measured across a slip the engine can see passes as good
// data, and after an abort the next mode measures right again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <string>
#include <vector>

#include "audio_analysis.h"
#include "e2e_modes.h"

namespace {

constexpr unsigned kVelmB = 74000002;
constexpr unsigned kOrskB = 74000004;
constexpr unsigned kGenerator = 24000004;
constexpr double kTone = 1e9 + 500.0;  // off the centre, so that swapped I and Q would mirror it
constexpr double kLevel = -30.0;
constexpr double kAudioRate = 30381.944444444445;
constexpr int kAudioCw = 4;
constexpr double kCwNote = 1040.0;
// Where the fault falls: a few reads ahead of what the unit has sent.
constexpr unsigned long long kAhead = 10000;
constexpr int kGetsAfterFault = 8;
constexpr int kGetsToASlip = 64;

// One get: its status, and whether what it delivered reads the tone right.
struct Reading {
    qorStatus status = qorUnknownErr;
    bool right = false;
    std::string seen;
};

std::string Seen(double level, double frequency) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f dB at %.1f Hz", level, frequency);
    return text;
}

// The tone in a trace from `start` in steps of `bin`: the strongest bin,
// where it lies and how strong.
template <typename Level>
Reading PeakReading(qorStatus status, const std::vector<Level>& trace, double start, double bin) {
    Reading r;
    r.status = status;
    if (trace.empty()) return r;
    const int peak = static_cast<int>(std::max_element(trace.begin(), trace.end()) - trace.begin());
    const double frequency = start + peak * bin;
    r.seen = Seen(trace[peak], frequency);
    r.right = std::fabs(trace[peak] - kLevel) < 1.5 && std::fabs(frequency - kTone) <= 2.0 * bin + 100.0;
    return r;
}

Reading ReadSweep(int device) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<double> min(static_cast<size_t>(std::max(length, 0))), max(min.size());
    return PeakReading(qorGetSweep_64f(device, min.data(), max.data()), max, start, bin);
}

// The generator through a thru, no thru stored: the trace reads the
// generator's level against its nominal, about 0 dB.
Reading ReadTgSweep(int device) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<double> trace(static_cast<size_t>(std::max(length, 0))), other(trace.size());
    Reading r;
    r.status = qorGetSweep_64f(device, trace.data(), other.data());
    if (trace.empty()) return r;
    std::nth_element(trace.begin(), trace.begin() + length / 2, trace.end());
    const double median = trace[static_cast<size_t>(length / 2)];
    r.seen = Seen(median, NAN);
    r.right = std::fabs(median) < 1.0;
    return r;
}

Reading ReadFrame(int device) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<float> sweep(static_cast<size_t>(std::max(length, 0)));
    return PeakReading(qorGetRealTimeFrame(device, sweep.data(), nullptr, nullptr), sweep, start, bin);
}

// The block's power (I^2 + Q^2 is mW) and the tone's offset from the centre
// by the mean turn from sample to sample.
Reading ReadIq(int device) {
    int returnLength = 0;
    double bandwidth = 0.0, rate = 0.0;
    qorQueryStreamInfo(device, &returnLength, &bandwidth, &rate);
    constexpr int kCount = 4096;
    std::vector<std::complex<float>> iq(kCount);
    IQPacket packet{reinterpret_cast<float*>(iq.data()), kCount, 0, 0, 0, 0, 0};
    Reading r;
    r.status = qorGetIQData(device, &packet);
    double power = 0.0;
    std::complex<double> turn;
    for (int i = 0; i < kCount; ++i) {
        power += std::norm(iq[i]);
        if (i > 0) turn += std::complex<double>(iq[i]) * std::conj(std::complex<double>(iq[i - 1]));
    }
    const double level = 10.0 * std::log10(power / kCount);
    const double offset = std::arg(turn) * rate / (2.0 * M_PI);
    r.seen = Seen(level, 1e9 + offset);
    r.right = std::fabs(level - kLevel) < 1.0 && std::fabs(1e9 + offset - kTone) < 50.0;
    return r;
}

// CW: the carrier sounds as a clean note of 1040 Hz.
Reading ReadAudio(int device) {
    std::vector<float> audio(4096);
    Reading r;
    r.status = qorGetAudio(device, audio.data());
    const audiotest::ToneFit fit = audiotest::FitTone(audio, kAudioRate, 500.0, 2000.0);
    r.seen = Seen(fit.sinadDb, fit.frequency) + " (SINAD)";
    r.right = std::fabs(fit.frequency - kCwNote) < 2.0 && fit.sinadDb > 20.0;
    return r;
}

// How the test reads each mode, the gets its filters take to settle, and
// whether it reads one continuous stream (a slip then lasts for the mode).
struct Way {
    Reading (*read)(int device);
    int settle;
    bool continuous;
};

Way WayOf(const std::string& mode) {
    if (mode == "iq") return {ReadIq, 1, true};
    if (mode == "real time") return {ReadFrame, 2, true};
    if (mode == "audio") return {ReadAudio, 6, true};
    if (mode == "tracking generator") return {ReadTgSweep, 1, false};
    return {ReadSweep, 1, false};
}

// The audio mode as CW on the tone, which sounds it as a note.
qorStatus StartMode(const e2e::ModeCase& mode, int device) {
    if (std::string(mode.name) != "audio") return mode.start(device);
    qorConfigAudio(device, kAudioCw, kTone, 3e3, 6e3, 100.0, 75.0);
    return qorInitiate(device, ModeAudio);
}

// Starts the mode and reads it until its filters have settled: the last reading.
Reading Settled(const e2e::ModeCase& mode, int device) {
    Reading r;
    r.status = StartMode(mode, device);
    if (r.status < 0) return r;
    for (int k = 0; k < WayOf(mode.name).settle + 1; ++k) r = WayOf(mode.name).read(device);
    return r;
}

struct Fault {
    const char* name;
    int (*inject)(unsigned serial);
    // The samples after it lie out of step by an odd number of bytes: each
    // value then takes a low byte for its high one and fills the full scale,
    // which the engines' overload test sees.
    bool oddSlip;
};

// Neither of the others can be seen in a stream without headers. Two bytes
// swap I and Q: a continuous mode shows the spectrum mirrored about its
// centre with status 0 until it is started again (a hopped or framed mode
// finds its place at its next sweep or frame). Garbled bytes become values of
// about 0.7 of full scale, short of its edge: a broadband blip in the results
// of that moment, with status 0.
const Fault kFaults[] = {
    {"one byte dropped", [](unsigned s) { return e2e::TheSim()->dropStreamBytes(s, kAhead, 1); }, true},
    {"two bytes dropped", [](unsigned s) { return e2e::TheSim()->dropStreamBytes(s, kAhead, 2); }, false},
    {"three bytes dropped", [](unsigned s) { return e2e::TheSim()->dropStreamBytes(s, kAhead, 3); }, true},
    {"bytes garbled", [](unsigned s) { return e2e::TheSim()->corruptStreamBytes(s, kAhead, 301); }, false},
};

// Every get returns a defined status; after an odd slip none hands out a
// wrong result with status 0, and a continuous mode reports the slip (with 2;
// the I/Q, audio and frame gets carry it as the sweeps do). After an abort the
// mode measures right again.
TEST(StreamFaults, EveryEngineReportsThemAndMeasuresRightAfterAnAbort) {
    const e2e::Sim* sim = e2e::TheSim();
    if (!sim) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
    simbench::Bench bench;
    for (const auto& [serial, type] : {std::pair{kVelmB, 2}, std::pair{kOrskB, 4}}) {
        bench.units.emplace_back(serial, type).OnDeviceCalibration(true).NoiseFloor(-160.0).Add(
            simbench::Cw(kTone, kLevel));
    }
    simbench::Generator& generator = bench.generators.emplace_back();
    generator.serial = kGenerator;
    generator.family = 2;
    generator.cabledTo = kOrskB;
    ASSERT_EQ(sim->loadBenchJson(simbench::Json(bench).c_str()), 0) << sim->lastError();
    e2e::CalibrationFolder().UseAsCalibrationCache();
    const int devices[2] = {e2e::Open(kVelmB), e2e::Open(kOrskB)};
    ASSERT_GE(devices[0], 0);
    ASSERT_GE(devices[1], 0);
    ASSERT_EQ(qorAttachTg(devices[1]), qorNoError);

    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        // The broadband engines read their detector on the command channel.
        if (std::string(mode.name).rfind("broadband", 0) == 0) continue;
        const int device = devices[mode.type == 4 ? 1 : 0];
        const unsigned serial = mode.type == 4 ? kOrskB : kVelmB;
        const Way way = WayOf(mode.name);
        for (const Fault& fault : kFaults) {
            SCOPED_TRACE(testing::Message() << mode.name << ", " << fault.name);
            const Reading clean = Settled(mode, device);
            ASSERT_EQ(clean.status, qorNoError);
            ASSERT_TRUE(clean.right) << clean.seen;
            ASSERT_EQ(fault.inject(serial), 0);
            // A continuous mode's results lag its reads by the blocks or
            // frames its ring holds: read on until the slip shows.
            const int gets = way.continuous ? kGetsToASlip : kGetsAfterFault;
            int reported = 0;
            for (int k = 0; k < gets && reported < 3; ++k) {
                // Nothing to check in what an unseen fault leaves: the status alone.
                const Reading r = fault.oddSlip ? way.read(device) : Reading{mode.get(device), false, ""};
                EXPECT_TRUE(r.status == qorNoError || r.status == qorCompression || r.status == qorUsbCommErr)
                    << r.status;
                reported += reported > 0 || r.status != qorNoError;
                if (fault.oddSlip && r.status == qorNoError) {
                    EXPECT_TRUE(r.right) << "get " << k << ": " << r.seen;
                }
            }
            if (fault.oddSlip && way.continuous) {
                EXPECT_GT(reported, 0) << "the slip was never reported";
            }
            qorAbort(device);
            const Reading after = Settled(mode, device);
            qorAbort(device);
            EXPECT_EQ(after.status, qorNoError);
            EXPECT_TRUE(after.right) << after.seen;
        }
    }
    e2e::CloseAll();
}

}  // namespace
