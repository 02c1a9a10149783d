// Audio through the C API on the virtual instrument: each demodulator on a
// clean carrier modulated by a tone gives that tone (within 1 Hz) with the
// signal to noise and distortion it must have, the sidebands reject each
// other, CW sounds a carrier at 1040 Hz however often it is started, the get
// call's refusals, and a stalled stream. The measurements run the filters for
// 50 blocks and more, half a minute under the thread sanitizer; the engine's
// threads are checked there by the stall and the tests of every engine.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "audio_analysis.h"
#include "e2e_bench.h"

namespace {

constexpr unsigned kSerial = 43000002;
constexpr int kBlock = 4096;
// Blocks to let the filters settle and the automatic levels find the carrier.
constexpr int kSettleBlocks = 6;
constexpr double kLowPass = 6000.0;
constexpr double kHighPass = 100.0;
constexpr double kDeemphasisUs = 75.0;
constexpr double kAudioRate = 30381.944444444445;

struct Carrier {
    const char* kind;
    double frequency;
    double tone;
};

// The carriers of the bench, each alone in its channel, all at -50 dBm.
const Carrier kAm{"am", 100e6, 1000.0};
const Carrier kAmLow{"am", 101e6, 300.0};
const Carrier kFm{"fm", 110e6, 1500.0};
const Carrier kFmHigh{"fm", 111e6, 3000.0};
const Carrier kUsb{"usb", 120e6, 1200.0};
const Carrier kLsb{"lsb", 130e6, 2000.0};
const Carrier kPlain{"cw", 140e6, 0.0};

const std::vector<e2e::BenchUnit>& Scene() {
    static const std::vector<e2e::BenchUnit> units = [] {
        e2e::BenchUnit unit{kSerial, 2, {}};
        for (const Carrier& c : {kAm, kAmLow, kFm, kFmHigh, kUsb, kLsb, kPlain}) {
            simbench::Signal& s = unit.signals.emplace_back(simbench::Cw(c.frequency, -50.0));
            s.kind = c.kind;
            if (s.kind == "am") s.depth = 0.5;
            if (s.kind == "fm") s.deviation = 5000.0;
            if (c.tone > 0.0) s.tone = c.tone;
        }
        return std::vector<e2e::BenchUnit>{unit};
    }();
    return units;
}

class Audio : public e2e::SceneSuite<Scene> {
protected:
    // The audio mode keeps the level the last engine chose: an I/Q stream for
    // a reference level of -50 dBm chooses one for the carriers.
    static void SetUpTestSuite() {
        SceneSuite::SetUpTestSuite();
        if (!failure_.empty()) return;
        device_ = devices_.at(kSerial);
        qorConfigCenterSpan(device_, kAm.frequency, 1e3);
        qorConfigLevel(device_, -50.0);
        qorConfigIQ(device_, 16, 10e3);
        std::vector<float> iq(2 * 1024);
        if (qorInitiate(device_, ModeIQ) == qorNoError) qorGetIQ_32f(device_, iq.data());
        qorAbort(device_);
    }

    // Starts `type` at `center` and returns the block after the settling ones.
    static std::vector<float> Listen(int type, double center, double bandwidth) {
        std::vector<float> block(kBlock);
        EXPECT_EQ(qorConfigAudio(device_, type, center, bandwidth, kLowPass, kHighPass, kDeemphasisUs), qorNoError);
        EXPECT_EQ(qorInitiate(device_, ModeAudio), qorNoError);
        for (int k = 0; k <= kSettleBlocks; ++k) EXPECT_EQ(qorGetAudio(device_, block.data()), qorNoError);
        qorAbort(device_);
        return block;
    }

    static inline int device_ = -1;
};

struct DemodCase {
    const char* name;
    int type;
    Carrier carrier;
    double bandwidth;
    double heard;    // Hz
    double sinadDb;  // at least
    int other = -1;  // the other sideband's type: it hears the tone at least 30 dB lower
};

// Each type on its carrier. The 1040 Hz of CW go to the device's copy of the
// settings, taken anew at every initiate: the note stays where it is on a
// second start. Both sideband modes normalise to the channel's peak, so their
// levels compare.
TEST_F(Audio, EachTypeGivesItsToneCleanly) {
    if (e2e::kThreadSanitizer) GTEST_SKIP() << "a measurement too slow under the thread sanitizer";
    const DemodCase cases[] = {
        {"AM 1 kHz", 0, kAm, 10e3, 1000.0, 40.0},   {"AM 300 Hz", 0, kAmLow, 10e3, 300.0, 40.0},
        {"FM 1.5 kHz", 1, kFm, 25e3, 1500.0, 40.0}, {"FM 3 kHz", 1, kFmHigh, 25e3, 3000.0, 40.0},
        {"USB", 2, kUsb, 6e3, 1200.0, 30.0, 3},     {"LSB", 3, kLsb, 6e3, 2000.0, 30.0, 2},
        {"CW", 4, kPlain, 3e3, 1040.0, 30.0},       {"CW again", 4, kPlain, 3e3, 1040.0, 30.0},
    };
    for (const DemodCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<float> heard = Listen(c.type, c.carrier.frequency, c.bandwidth);
        const audiotest::ToneFit fit = audiotest::FitTone(heard, kAudioRate, 100.0, 5000.0);
        EXPECT_NEAR(fit.frequency, c.heard, 1.0);
        EXPECT_GE(fit.sinadDb, c.sinadDb);
        if (c.other >= 0) {
            const double other = audiotest::AmplitudeAt(Listen(c.other, c.carrier.frequency, c.bandwidth),
                                                        kAudioRate, c.heard);
            EXPECT_GT(20 * std::log10(audiotest::AmplitudeAt(heard, kAudioRate, c.heard) / other), 30.0);
        }
    }
}

TEST_F(Audio, GetOutsideTheModeIsRefusedWithMinus6) {
    std::vector<float> block(kBlock);
    EXPECT_EQ(qorGetAudio(device_, block.data()), qorNotConfiguredErr);
    ASSERT_EQ(qorConfigIQ(device_, 16, 10e3), qorNoError);
    ASSERT_EQ(qorInitiate(device_, ModeIQ), qorNoError);
    EXPECT_EQ(qorGetAudio(device_, block.data()), qorNotConfiguredErr);
    qorAbort(device_);
    EXPECT_EQ(qorConfigAudio(device_, 5, 1e8, 1e4, kLowPass, kHighPass, kDeemphasisUs), qorInvalidParameterErr);
    EXPECT_EQ(qorGetAudio(device_, nullptr), qorNullPtrErr);
}

// A stream that stalls under a running audio mode: the get returns -11 with
// what it has within a second, so does every later one, and the abort is prompt.
TEST_F(Audio, AStalledStreamEndsInAUsbError) {
    using Clock = std::chrono::steady_clock;
    ASSERT_EQ(qorConfigAudio(device_, 0, kAm.frequency, 10e3, kLowPass, kHighPass, kDeemphasisUs), qorNoError);
    ASSERT_EQ(qorInitiate(device_, ModeAudio), qorNoError);
    std::vector<float> block(kBlock);
    ASSERT_EQ(qorGetAudio(device_, block.data()), qorNoError);
    ASSERT_EQ(e2e::TheSim()->stallStream(kSerial, 1), 0);
    const Clock::time_point asked = Clock::now();
    qorStatus status = qorNoError;
    for (int k = 0; k < 100 && status == qorNoError; ++k) status = qorGetAudio(device_, block.data());
    EXPECT_EQ(status, qorUsbCommErr);
    EXPECT_LT(Clock::now() - asked, std::chrono::seconds(1));
    EXPECT_EQ(qorGetAudio(device_, block.data()), qorUsbCommErr) << "and so every later get";
    const Clock::time_point leaving = Clock::now();
    EXPECT_EQ(qorAbort(device_), qorNoError);
    EXPECT_LT(Clock::now() - leaving, std::chrono::seconds(1));
    e2e::TheSim()->stallStream(kSerial, 0);
}

}  // namespace
