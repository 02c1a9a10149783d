// The I/Q stream through the C API on the virtual instrument: the power and
// frequency of a tone at every decimation, band and IF path of both
// families, the filter's edges, the stream's continuity across get calls of
// any size, its time stamps, and the refusals of the calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <thread>
#include <time.h>
#include <vector>

#include "e2e_bench.h"

namespace {

constexpr double kRate = 486111.1111111111;
constexpr unsigned kVelm = 42000002, kOrsk = 42000004;

struct IqCase {
    unsigned serial;
    double center;
    double offset;  // of the tone from the centre
    double level;   // dBm
    int decimation;
    double refLevel;  // above 0.01 dBm: the high IF; else the low IF above 10 MHz
    bool passed = true;
};

// Each case's tone is on the bench once; the centres lie far enough apart
// that no other tone reaches the stream. Then the filter's edges: for each
// decimation at its widest bandwidth, a tone 0.9 of the half bandwidth above
// and below the centre (passed) and one 1.5 half bandwidths above (stopped).
// At D = 128 the 512-tap stage's transition reaches 330 Hz into the 1500 Hz
// half band, so the flat part ends at 0.75 of it.
const std::vector<IqCase>& Cases() {
    static const std::vector<IqCase> cases = [] {
        std::vector<IqCase> all = {
            {kVelm, 100e6, 10e3, -30.0, 1, -10.0},  {kVelm, 100e6, 10e3, -30.0, 8, 10.0},
            {kVelm, 300e6, -1e3, -50.0, 16, -40.0}, {kVelm, 300e6, -1e3, -50.0, 128, -40.0},
            {kVelm, 5e6, 40e3, -20.0, 2, -20.0},    {kVelm, 2.4e9, -40e3, -40.0, 4, -30.0},
            {kOrsk, 1e9, 25e3, -30.0, 2, -20.0},    {kOrsk, 5e9, 3e3, -30.0, 32, -20.0},
            {kOrsk, 7e9, -15e3, -35.0, 8, 5.0},     {kOrsk, 9e9, 1e3, -30.0, 64, -20.0},
            {kOrsk, 11e9, -8e3, -25.0, 4, -20.0},
        };
        const std::pair<int, double> widest[] = {{1, 250e3}, {2, 225e3}, {8, 50e3}, {16, 20e3}, {128, 3e3}};
        double center = 400e6;
        for (const auto& [decimation, bandwidth] : widest) {
            const double flat = decimation == 128 ? 0.75 : 0.9;
            for (double edge : {flat, -flat, 1.5}) {
                all.push_back({kVelm, center, edge * bandwidth / 2, -20.0, decimation, -20.0, edge < 1.0});
                center += 10e6;
            }
        }
        return all;
    }();
    return cases;
}

const std::vector<e2e::BenchUnit>& Units() {
    static const std::vector<e2e::BenchUnit> units = [] {
        std::vector<e2e::BenchUnit> all = {{kVelm, 2, {}}, {kOrsk, 4, {}}};
        for (const IqCase& c : Cases()) {
            std::vector<e2e::Tone>& tones = all[c.serial == kVelm ? 0 : 1].tones;
            const double f = c.center + c.offset;
            if (std::none_of(tones.begin(), tones.end(), [f](const e2e::Tone& t) { return t.frequency == f; })) {
                tones.push_back({f, c.level});
            }
        }
        return all;
    }();
    return units;
}

using Samples = std::vector<std::complex<float>>;
using Clock = std::chrono::steady_clock;

qorStatus StartIq(int device, double center, int decimation, double refLevel) {
    qorConfigCenterSpan(device, center, 100e3);
    qorConfigLevel(device, refLevel);
    const qorStatus configured = qorConfigIQ(device, decimation, 1e9);  // the widest bandwidth of the decimation
    return configured != qorNoError ? configured : qorInitiate(device, ModeIQ);
}

// `count` samples in gets of `chunk`; the status of the last get that failed, else 0.
qorStatus Read(int device, int count, int chunk, Samples* out, std::vector<IQPacket>* packets = nullptr) {
    out->resize(static_cast<std::size_t>(count));
    qorStatus status = qorNoError;
    for (int at = 0; at < count; at += chunk) {
        IQPacket packet{reinterpret_cast<float*>(out->data() + at), std::min(chunk, count - at), 0, 0, 0, 0, 0};
        const qorStatus got = qorGetIQData(device, &packet);
        if (got != qorNoError) status = got;
        if (packets) packets->push_back(packet);
    }
    return status;
}

// Mean power in dBm (I^2 + Q^2 in mW) and the frequency of a lone tone, from
// the mean phase step between neighbours.
double PowerDbm(const Samples& x, std::size_t from) {
    double sum = 0.0;
    for (std::size_t i = from; i < x.size(); ++i) sum += std::norm(std::complex<double>(x[i]));
    return 10.0 * std::log10(sum / static_cast<double>(x.size() - from));
}

double FrequencyHz(const Samples& x, std::size_t from, double rate) {
    std::complex<double> turn = 0.0;
    for (std::size_t i = from + 1; i < x.size(); ++i) {
        turn += std::complex<double>(x[i]) * std::conj(std::complex<double>(x[i - 1]));
    }
    return std::arg(turn) * rate / (2.0 * M_PI);
}

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

class IqStream : public e2e::SceneSuite<Units> {};

TEST_F(IqStream, ToneLevelAndFrequencyAtEveryDecimationBandPathAndEdge) {
    for (const IqCase& c : Cases()) {
        SCOPED_TRACE(testing::Message() << c.serial << " at " << c.center << " D " << c.decimation << " offset "
                                        << c.offset);
        const int device = devices_.at(c.serial);
        ASSERT_EQ(StartIq(device, c.center, c.decimation, c.refLevel), qorNoError);
        const int block = 16384 / c.decimation;
        Samples x;
        // Over again while a loss broke the record: the instrument delivers
        // at once, and a reader that lost the processor for a moment falls behind.
        for (int attempt = 0; attempt < 5; ++attempt) {
            std::vector<IQPacket> packets;
            ASSERT_EQ(Read(device, 6 * block, block, &x, &packets), qorNoError);
            if (std::none_of(packets.begin() + 1, packets.end(), [](const IQPacket& p) { return p.sampleLoss; })) break;
        }
        const std::size_t settled = 2 * static_cast<std::size_t>(block);  // past the filters' start
        if (c.passed) {
            EXPECT_NEAR(PowerDbm(x, settled), c.level, 0.2);
            EXPECT_NEAR(FrequencyHz(x, settled, kRate / c.decimation), c.offset, 1.0);
        } else {
            EXPECT_LT(PowerDbm(x, settled), c.level - 60.0);
        }
        qorAbort(device);
    }
}

TEST_F(IqStream, CallsRefuseWhatTheyCannotServe) {
    const int device = devices_.at(kVelm);
    for (int bad : {0, 3, 256, -2}) EXPECT_EQ(qorConfigIQ(device, bad, 1e5), qorInvalidParameterErr) << bad;
    ASSERT_EQ(qorConfigIQ(device, 128, 1e6), qorNoError);
    ASSERT_EQ(qorInitiate(device, ModeIQ), qorNoError);
    int length = 0;
    double bandwidth = 0.0, rate = 0.0;
    ASSERT_EQ(qorQueryStreamInfo(device, &length, &bandwidth, &rate), qorNoError);
    EXPECT_EQ(length, 128);
    EXPECT_EQ(bandwidth, 3000.0);
    EXPECT_DOUBLE_EQ(rate, kRate / 128);
    float f[2] = {};
    int start = 0, stop = 0;
    EXPECT_EQ(qorGetSweep_32f(device, f, f), qorWrongModeErr);
    EXPECT_EQ(qorGetPartialSweep_32f(device, f, f, &start, &stop), qorWrongModeErr);
    EXPECT_EQ(qorGetIQ(device, f, 0, 0), qorInvalidParameterErr);
    EXPECT_EQ(qorGetIQ(device, f, 1, 1), qorNoError);

    // Every get call, idle (-6) and in another mode (-7); the 64-bit form
    // leaves the caller's buffer alone when it refuses.
    std::vector<double> wide(256, 7.0);
    std::vector<float> narrow(256);
    const auto everyGet = [&](qorStatus expected) {
        IQPacket packet{narrow.data(), 1, 0, 0, 0, 0, 0};
        EXPECT_EQ(qorGetIQ_32f(device, narrow.data()), expected);
        EXPECT_EQ(qorGetIQ_64f(device, wide.data()), expected);
        EXPECT_EQ(qorGetIQ(device, narrow.data(), 1, 0), expected);
        EXPECT_EQ(qorGetIQData(device, &packet), expected);
        EXPECT_EQ(qorGetIQDataUnpacked(device, narrow.data(), 1, 0, nullptr, nullptr, nullptr, nullptr), expected);
        EXPECT_EQ(wide[0], 7.0);
    };
    ASSERT_EQ(qorAbort(device), qorNoError);
    everyGet(qorNotConfiguredErr);
    ASSERT_GE(e2e::Initiate(device, e2e::Between(99e6, 101e6, 10e3)), 0);
    everyGet(qorWrongModeErr);
    ASSERT_EQ(qorAbort(device), qorNoError);
    EXPECT_EQ(qorQueryStreamInfo(device, nullptr, nullptr, nullptr), qorNotConfiguredErr);
    ASSERT_EQ(qorConfigIQ(device, 1, 1.0), qorNoError);
    ASSERT_EQ(qorInitiate(device, ModeIQ), qorNoError);
    ASSERT_EQ(qorQueryStreamInfo(device, nullptr, &bandwidth, nullptr), qorNoError);
    EXPECT_EQ(bandwidth, 100.0);
    qorAbort(device);
}

// A stream paced as the unit delivers it, on a unit whose clock runs in real
// time (its read limits then hold as they do with hardware): what the
// application sees when it reads slowly, or in pieces; and how promptly a
// mode is left.
class IqPaced : public e2e::RealClockSuite<IqPaced> {
protected:
    static constexpr unsigned kSerial = 42000012;
    static constexpr double kCenter = 100e6, kOffset = 3e3;
    static constexpr int kDecimation = 2;

    static void SetUpTestSuite() {
        if (e2e::kThreadSanitizer) return;
        device_ = e2e::OpenRealTimeUnit(kSerial, simbench::Cw(kCenter + kOffset, -30.0));
        if (device_ >= 0) started_ = StartIq(device_, kCenter, kDecimation, -20.0);
    }
    void SetUp() override {
        if (!e2e::TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
        // The slow sweep's transform of a second's capture, which a stop waits
        // for, takes seconds itself under the thread sanitizer.
        if (e2e::kThreadSanitizer) GTEST_SKIP() << "the unit's real rate needs a build without the thread sanitizer";
        ASSERT_GE(device_, 0);
        ASSERT_EQ(started_, qorNoError);
    }
    // Every sample the next after the one before: the tone's phase turns by
    // the same step throughout.
    static void ExpectContinuous(const Samples& x) {
        const double step = 2.0 * M_PI * kOffset * kDecimation / kRate;
        for (std::size_t i = 1; i < x.size(); ++i) {
            const double turn = std::arg(std::complex<double>(x[i]) * std::conj(std::complex<double>(x[i - 1])));
            ASSERT_NEAR(turn, step, 0.01) << "sample " << i << " is not the one after " << i - 1;
        }
    }

    static inline qorStatus started_ = qorUnknownErr;
};

TEST_F(IqPaced, GetsOfAnySizeMakeOneContinuousStream) {
    Samples x;
    ASSERT_EQ(Read(device_, 8192, 8192, &x), qorNoError);  // past the filters' start
    x.clear();
    for (int chunk : {1, 7, 1000, 8192}) {
        Samples part;
        std::vector<IQPacket> packets;
        ASSERT_EQ(Read(device_, 3 * chunk + 5, chunk, &part, &packets), qorNoError);
        for (const IQPacket& p : packets) EXPECT_EQ(p.sampleLoss, 0);
        x.insert(x.end(), part.begin(), part.end());
    }
    ExpectContinuous(x);
}

// The stamp of each get's first sample moves on with the samples delivered,
// within a block.
TEST_F(IqPaced, TimeStampsFollowTheSampleCount) {
    // A block is stamped when it is finished: an instrumented build finishes
    // the first blocks late by the backlog its slow start leaves.
    if (e2e::kAnySanitizer) GTEST_SKIP() << "stamps follow the real time only in a build without sanitizers";
    std::vector<IQPacket> packets;
    Samples x;
    ASSERT_EQ(Read(device_, 12 * 8192, 8192, &x, &packets), qorNoError);
    // Each stamp against the samples before it, less the mean of those
    // differences (the time a block takes to be finished).
    const double period = 8192.0 * 1000.0 * kDecimation / kRate;
    std::vector<double> lead;
    for (std::size_t k = 0; k < packets.size(); ++k) {
        const double ms = static_cast<double>(packets[k].sec - packets[0].sec) * 1000.0 + packets[k].milli;
        lead.push_back(ms - static_cast<double>(k) * period);
    }
    const double mean = std::accumulate(lead.begin(), lead.end(), 0.0) / static_cast<double>(lead.size());
    for (std::size_t k = 0; k < lead.size(); ++k) EXPECT_NEAR(lead[k], mean, period) << "get " << k;
}

// An application that stops reading for longer than the buffer holds loses
// what was buffered, is told once, and then reads on without a gap; a purge
// drops what is buffered together with a pending loss.
TEST_F(IqPaced, AReaderThatFallsBehindIsToldOnceAndAPurgeStartsAfresh) {
    Samples x;
    ASSERT_EQ(Read(device_, 8192, 8192, &x), qorNoError);
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    std::vector<IQPacket> packets;
    ASSERT_EQ(Read(device_, 4 * 8192, 8192, &x, &packets), qorNoError);
    EXPECT_EQ(packets[0].sampleLoss, 1);
    for (std::size_t k = 1; k < packets.size(); ++k) EXPECT_EQ(packets[k].sampleLoss, 0) << "get " << k;
    ExpectContinuous(Samples(x.begin() + 8192, x.end()));

    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    IQPacket purged{reinterpret_cast<float*>(x.data()), 100, 1, 0, 0, 0, 0};
    ASSERT_EQ(qorGetIQData(device_, &purged), qorNoError);
    EXPECT_EQ(purged.sampleLoss, 0) << "the pending loss went with the purge";
    EXPECT_LT(purged.dataRemaining, 8192) << "nothing from before the purge";
}

// A stream that stalls while a get waits: the get returns -11 within two
// seconds (a read's limit and some), so does every later one, and leaving
// the mode is prompt.
TEST_F(IqPaced, AStalledStreamEndsTheWaitWithAUsbError) {
    Samples x;
    ASSERT_EQ(StartIq(device_, kCenter, kDecimation, -20.0), qorNoError);
    ASSERT_EQ(Read(device_, 8192, 8192, &x), qorNoError);
    ASSERT_EQ(e2e::TheSim()->stallStream(kSerial, 1), 0);
    const Clock::time_point asked = Clock::now();
    EXPECT_EQ(Read(device_, 1 << 22, 8192, &x), qorUsbCommErr);  // far more than comes before the stall
    EXPECT_LT(Clock::now() - asked, std::chrono::seconds(2));
    EXPECT_EQ(Read(device_, 1, 1, &x), qorUsbCommErr) << "and so every later get";
    const Clock::time_point leaving = Clock::now();
    EXPECT_EQ(qorAbort(device_), qorNoError);
    EXPECT_LT(Clock::now() - leaving, std::chrono::seconds(1));
    e2e::TheSim()->stallStream(kSerial, 0);
}

// Leaving a mode is prompt whatever the stream does: abort returns within a
// second in every engine that reads samples, also while the stream stalls
// under a read and a caller waits; the wait on the silent stream uses under a
// tenth of a core.
TEST_F(IqPaced, AbortReturnsWithinASecondOnAStalledStream) {
    struct Mode {
        const char* engine;
        e2e::Sweep sweep;  // a span of 0: the I/Q stream
    };
    const Mode modes[] = {
        {"slow", e2e::Between(99.95e6, 100.05e6, 1.0)},  // captures of seconds
        {"midrange", e2e::Between(95e6, 105e6, 1e3)},
        {"fast", e2e::Between(50e6, 1.5e9, 100e3)},
        {"iq", e2e::Sweep{}},
    };
    for (const Mode& m : modes) {
        SCOPED_TRACE(m.engine);
        // In a sanitizer build the slow sweep's transform of its last capture,
        // which a stop waits for, alone outlasts the second.
        if (e2e::kAnySanitizer && m.sweep.rbw < 10.0) continue;
        if (m.sweep.span > 0.0 && m.sweep.center > 0.0) {
            ASSERT_GE(e2e::Initiate(device_, m.sweep), 0);
        } else {
            qorConfigCenterSpan(device_, 100e6, 100e3);
            ASSERT_EQ(qorInitiate(device_, ModeIQ), qorNoError);
        }
        std::thread waiter([] {
            std::vector<float> buffer(1 << 22);
            if (qorQuerySweepInfo(device_, nullptr, nullptr, nullptr) == qorNotConfiguredErr) {
                qorGetIQ(device_, buffer.data(), 1 << 20, 0);
            } else {
                int length = 0;
                double start = 0.0, bin = 0.0;
                qorQuerySweepInfo(device_, &length, &start, &bin);
                std::vector<float> max(static_cast<std::size_t>(std::max(length, 1)));
                qorGetSweep_32f(device_, buffer.data(), max.data());
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_EQ(e2e::TheSim()->stallStream(kSerial, 1), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));  // a read under way on a silent stream
        // Waiting on the silent stream costs next to nothing: under a tenth of a core.
        const double cpuBefore = ProcessCpuSeconds();
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        const double cpu = ProcessCpuSeconds() - cpuBefore;
        if (!e2e::kAnySanitizer) {
            EXPECT_LT(cpu, 0.04);
        }
        const Clock::time_point leaving = Clock::now();
        EXPECT_EQ(qorAbort(device_), qorNoError);
        EXPECT_LT(Clock::now() - leaving, std::chrono::seconds(1));
        waiter.join();
        e2e::TheSim()->stallStream(kSerial, 0);
    }
}

// A preset leaves the re-enumeration of the unit to the next open, which
// waits it out, instead of holding the caller for it.
TEST_F(IqPaced, PresetReturnsWithinASecondWhileMeasuring) {
    ASSERT_GE(e2e::Initiate(device_, e2e::Between(95e6, 105e6, 1e3)), 0);
    const Clock::time_point presetting = Clock::now();
    EXPECT_EQ(qorPreset(device_), qorNoError);
    EXPECT_LT(Clock::now() - presetting, std::chrono::seconds(1));
    EXPECT_EQ(qorCloseDevice(device_), qorDeviceNotOpenErr);
    device_ = -1;
}

}  // namespace
