// Bytes dropped from, garbled on or handed over short by the stream of a
// running mode: every get returns a defined status, no result measured
// across a slip the engine can see passes as good data, and the next mode
// measures right again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
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
// Gets after the fault: a sweep is measured after its get was asked for; the
// result of a continuous mode lags its reads by up to the 62 I/Q gets (48
// audio blocks, 32 frames) its ring holds, and then comes from reads made
// after the fault was set.
constexpr int kSweepsAfterFault = 4;
constexpr int kStreamGetsAfterFault = 72;

// One get: its status, and whether what it delivered reads the tone right.
struct Reading {
    qorStatus status = qorUnknownErr;
    bool right = false;
    std::string seen;
};

Reading Verdict(qorStatus status, bool right, double level, double frequency) {
    char seen[64];
    std::snprintf(seen, sizeof seen, "%.2f dB at %.1f Hz", level, frequency);
    return {status, right, seen};
}

// The mode's trace: `Get` fills `trace` on the grid of qorQuerySweepInfo;
// the tone is its strongest bin.
template <typename Level, typename Get>
Reading ReadTrace(int device, Get get) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<Level> trace(static_cast<size_t>(std::max(length, 1)), -300), other(trace.size());
    const qorStatus status = get(trace.data(), other.data());
    const int peak = static_cast<int>(std::max_element(trace.begin(), trace.end()) - trace.begin());
    const double f = start + peak * bin;
    return Verdict(status, std::fabs(trace[peak] - kLevel) < 1.5 && std::fabs(f - kTone) <= 2.0 * bin + 100.0,
                   trace[peak], f);
}

Reading ReadSweep(int device) {
    return ReadTrace<double>(device, [&](double* t, double* other) { return qorGetSweep_64f(device, other, t); });
}

Reading ReadFrame(int device) {
    return ReadTrace<float>(device, [&](float* t, float*) { return qorGetRealTimeFrame(device, t, nullptr, nullptr); });
}

// The generator through a thru, no thru stored: the trace reads the
// generator's level against its nominal, about 0 dB at most points.
Reading ReadTgSweep(int device) {
    int length = 0;
    double start = 0.0, bin = 0.0;
    qorQuerySweepInfo(device, &length, &start, &bin);
    std::vector<double> trace(static_cast<size_t>(std::max(length, 1))), other(trace.size());
    const qorStatus status = qorGetSweep_64f(device, trace.data(), other.data());
    std::nth_element(trace.begin(), trace.begin() + length / 2, trace.end());
    const double median = trace[static_cast<size_t>(length / 2)];
    return Verdict(status, std::fabs(median) < 1.0, median, NAN);
}

// The block's power (I^2 + Q^2 is mW) and the tone's offset from the centre
// by the mean turn from sample to sample.
Reading ReadIq(int device) {
    int returnLength = 0;
    double bandwidth = 0.0, rate = 0.0;
    qorQueryStreamInfo(device, &returnLength, &bandwidth, &rate);
    std::vector<std::complex<float>> iq(4096);
    IQPacket packet{reinterpret_cast<float*>(iq.data()), static_cast<int>(iq.size()), 0, 0, 0, 0, 0};
    const qorStatus status = qorGetIQData(device, &packet);
    double power = 0.0;
    std::complex<double> turn;
    for (size_t i = 0; i < iq.size(); ++i) {
        power += std::norm(iq[i]);
        if (i > 0) turn += std::complex<double>(iq[i]) * std::conj(std::complex<double>(iq[i - 1]));
    }
    const double level = 10.0 * std::log10(power / iq.size());
    const double f = 1e9 + std::arg(turn) * rate / (2.0 * M_PI);
    return Verdict(status, std::fabs(level - kLevel) < 1.0 && std::fabs(f - kTone) < 50.0, level, f);
}

// CW: the carrier sounds as a note of 1040 Hz that holds nearly all the
// power (the level is its signal to noise and distortion, in dB).
Reading ReadAudio(int device) {
    std::vector<float> audio(4096);
    const qorStatus status = qorGetAudio(device, audio.data());
    const double amplitude = audiotest::AmplitudeAt(audio, kAudioRate, kCwNote);
    double power = 0.0;
    for (const float v : audio) power += static_cast<double>(v) * v;
    const double note = amplitude * amplitude / 2;
    const double sinad = 10.0 * std::log10(note / std::max(power / audio.size() - note, 1e-30));
    return Verdict(status, sinad > 20.0, sinad, kCwNote);
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

// Starts the mode (audio as CW on the tone, which sounds it as a note) and
// reads it until its filters have settled: the last reading.
Reading Settled(const e2e::ModeCase& mode, int device) {
    const bool audio = std::string(mode.name) == "audio";
    if (audio) qorConfigAudio(device, kAudioCw, kTone, 3e3, 6e3, 100.0, 75.0);
    Reading r{audio ? qorInitiate(device, ModeAudio) : mode.start(device), false, ""};
    for (int k = 0; k < WayOf(mode.name).settle + 1 && r.status >= 0; ++k) r = WayOf(mode.name).read(device);
    return r;
}

struct Fault {
    const char* name;
    bool drop;  // else garble (XOR 0xA5)
    unsigned long long count;
    // The samples after it lie out of step by an odd number of bytes: each
    // value takes a low byte for its high one, which the engines' overload
    // test sees (values at the edge of the full scale; at weak levels all of
    // them 256 times too large, with low bytes of 0x00 or 0xFF).
    bool oddSlip;
};

// Neither of the others can be seen in a stream without headers. Two bytes
// swap I and Q: a continuous mode shows the spectrum mirrored about its
// centre with status 0 until it is started again (a hopped or framed mode
// finds its place at its next sweep or frame). Garbled bytes become values of
// about 0.7 of full scale, short of its edge: a broadband blip in the results
// of that moment, with status 0.
const Fault kFaults[] = {
    {"one byte dropped", true, 1, true},
    {"two bytes dropped", true, 2, false},
    {"three bytes dropped", true, 3, true},
    {"bytes garbled", false, 301, false},
};

// Both units of the modes on one bench, with a generator cabled to the
// 12.4 GHz one, opened once for the suite.
class FaultBench : public ::testing::Test {
protected:
    static void SetUpTestSuite() { Load(-160.0); }
    static void Load(double noiseFloor) {
        simbench::Bench bench = e2e::BenchOf(
            {{kVelmB, 2, {{kTone, kLevel}}, noiseFloor}, {kOrskB, 4, {{kTone, kLevel}}, noiseFloor}});
        bench.generators.push_back({kGenerator, 2, kOrskB, {}});
        if (!e2e::LoadBench(bench).empty()) return;
        devices_[0] = e2e::Open(kVelmB);
        devices_[1] = e2e::Open(kOrskB);
        attached_ = devices_[1] >= 0 && qorAttachTg(devices_[1]) == qorNoError;
    }
    static void TearDownTestSuite() { e2e::CloseAll(); }
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        ASSERT_GE(devices_[0], 0);
        ASSERT_TRUE(attached_);
    }
    static int DeviceOf(const e2e::ModeCase& mode) { return devices_[mode.type == 4 ? 1 : 0]; }
    static unsigned SerialOf(const e2e::ModeCase& mode) { return mode.type == 4 ? kOrskB : kVelmB; }

    static inline int devices_[2] = {-1, -1};
    static inline bool attached_ = false;
};

class StreamFaults : public FaultBench, public ::testing::WithParamInterface<std::string> {};

// Without noise, so that two sweeps of the scene agree to the last bit.
class ShortReads : public FaultBench {
protected:
    static void SetUpTestSuite() { Load(-250.0); }
};

// Every get returns a defined status; after an odd slip none hands out a
// wrong result with status 0, and a continuous mode reports the slip (with 2;
// the I/Q, audio and frame gets carry it as the sweeps do). After an abort the
// mode measures right again.
TEST_P(StreamFaults, AreReportedAndDoNotOutliveTheMode) {
    // The instrumented builds take over a second for a hopped sweep of 1 GHz
    // and tens of milliseconds for each of the hundreds of audio blocks.
    if (e2e::kAnySanitizer && (GetParam() == "fast" || GetParam() == "audio")) {
        GTEST_SKIP() << "too slow in an instrumented build";
    }
    const e2e::ModeCase& mode = *std::find_if(e2e::AllModes().begin(), e2e::AllModes().end(),
                                              [](const e2e::ModeCase& m) { return GetParam() == m.name; });
    const int device = DeviceOf(mode);
    const unsigned serial = SerialOf(mode);
    const Way way = WayOf(mode.name);
    for (const Fault& fault : kFaults) {
        // The threads meet alike for every fault: the thread sanitizer, at
        // seconds per mode, sees one.
        if (e2e::kThreadSanitizer && &fault != kFaults) continue;
        SCOPED_TRACE(fault.name);
        const Reading clean = Settled(mode, device);
        ASSERT_EQ(clean.status, qorNoError);
        ASSERT_TRUE(clean.right) << clean.seen;
        const e2e::Sim* sim = e2e::TheSim();
        ASSERT_EQ((fault.drop ? sim->dropStreamBytes : sim->corruptStreamBytes)(serial, kAhead, fault.count), 0);
        const int gets = way.continuous ? kStreamGetsAfterFault : kSweepsAfterFault;
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

// Every mode that reads the stream; the broadband engines read their detector
// on the command channel.
std::vector<std::string> StreamModes() {
    std::vector<std::string> names;
    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        if (std::string(mode.name).rfind("broadband", 0) != 0) names.push_back(mode.name);
    }
    return names;
}

INSTANTIATE_TEST_SUITE_P(EveryMode, StreamFaults, ::testing::ValuesIn(StreamModes()), [](const auto& info) {
    std::string name;
    for (const char c : info.param) {
        if (std::isalnum(static_cast<unsigned char>(c))) name += c;
        else if (c == ' ') name += '_';
    }
    return name;
});

}  // namespace

namespace {

// The max trace of the second sweep, or the power in dB of the second block of samples.
std::vector<double> Result(const e2e::ModeCase& mode, int device) {
    EXPECT_GE(mode.start(device), 0) << mode.name;
    std::vector<double> result;
    int length = 0;
    double start = 0.0, bin = 0.0;
    if (qorQuerySweepInfo(device, &length, &start, &bin) == qorNoError) {
        std::vector<double> min(static_cast<size_t>(length));
        result = min;
        for (int k = 0; k < 2; ++k) EXPECT_EQ(qorGetSweep_64f(device, min.data(), result.data()), qorNoError);
    } else {
        std::vector<float> iq(2 * 4096);
        for (int k = 0; k < 2; ++k) {
            IQPacket packet{iq.data(), 4096, 0, 0, 0, 0, 0};
            EXPECT_EQ(qorGetIQData(device, &packet), qorNoError);
        }
        double power = 0.0;
        for (const float v : iq) power += static_cast<double>(v) * v;
        result.push_back(10.0 * std::log10(power / 4096));
    }
    qorAbort(device);
    return result;
}

// Reads of the stream that hand over only part of what was asked, though the
// rest is queued, as a driver may: at any rate of them every engine that
// reads sweeps or samples measures exactly what it measures without them.
TEST_F(ShortReads, ChangeNoMeasurement) {
    for (const e2e::ModeCase& mode : e2e::AllModes()) {
        // The detector sweeps come on the command channel; the modes without
        // sweeps or samples to compare are covered by the stream faults.
        const std::string name = mode.name;
        if (name.rfind("broadband", 0) == 0 || name == "real time" || name == "audio" || name == "tracking generator") {
            continue;
        }
        SCOPED_TRACE(mode.name);
        const int device = DeviceOf(mode);
        const std::vector<double> clean = Result(mode, device);
        for (const double chance : {0.2, 0.9}) {
            SCOPED_TRACE(chance);
            ASSERT_EQ(e2e::TheSim()->shortReads(SerialOf(mode), chance), 0);
            const std::vector<double> cut = Result(mode, device);
            ASSERT_EQ(cut.size(), clean.size());
            const double peak = *std::max_element(clean.begin(), clean.end());
            for (size_t i = 0; i < clean.size(); ++i) {
                // Deeper in a tone's skirt two sweeps of the same scene differ by
                // tenths of a dB anyway (the hopped sweep's steps fall differently).
                if (clean[i] > peak - 30.0) {
                    EXPECT_NEAR(cut[i], clean[i], 0.01) << "bin " << i;
                }
            }
        }
        e2e::TheSim()->shortReads(SerialOf(mode), 0.0);
    }
}

// Headers lost, garbled or of the wrong size in a running midrange sweep:
// the reader finds its place again and the sweeps go on right, without error.
TEST_F(FaultBench, MidrangeResynchronisesAfterLostGarbledOrResizedHeaders) {
    struct Fault {
        const char* name;
        int (*inject)(unsigned serial);
    };
    const Fault faults[] = {
        {"lost headers", [](unsigned s) { return e2e::TheSim()->loseFrameHeaders(s, 3); }},
        // More than a whole frame: headers go, and samples with them.
        {"garbled headers", [](unsigned s) { return e2e::TheSim()->corruptStreamBytes(s, 1000, 1500000); }},
        {"frames of another size", [](unsigned s) { return e2e::TheSim()->wrongSizeFrames(s, 3); }},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.name);
        // With rejection 597 steps of one block: three segments, a frame of 1.2 MB.
        e2e::Trace t = e2e::Start(devices_[1], e2e::Between(951e6, 1049e6, 250e3, true));
        ASSERT_EQ(qorNoError, t.initiate);
        ASSERT_EQ(qorNoError, e2e::Take(devices_[1], t));
        ASSERT_EQ(0, fault.inject(kOrskB));
        for (int k = 0; k < 4; ++k) ASSERT_EQ(qorNoError, e2e::Take(devices_[1], t)) << k;
        qorAbort(devices_[1]);
        const int peak = t.PeakNear(kTone, t.binSize);
        ASSERT_GE(peak, 0);
        EXPECT_NEAR(t.FrequencyOf(peak), kTone, t.binSize);
        EXPECT_NEAR(t.max[peak], kLevel, 1.0);
    }
}

}  // namespace
