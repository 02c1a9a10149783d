// The audio chain below the engine, on synthetic channels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "audio_analysis.h"
#include "audio_chain.h"
#include "audio_demodulators.h"
#include "settings.h"

namespace {

using qor::AudioChain;

constexpr double kRate = 486111.1111111111;

qor::Settings AudioSettings(int type, double bandwidth) {
    qor::Settings s;
    s.audioType = type;
    s.audioBandwidth = bandwidth;
    s.audioLowPass = 6000.0;
    s.audioHighPass = 100.0;
    return s;
}

// `turns` turns of a complex tone at `hz` from the tuning, into audio.
std::vector<float> Demodulate(AudioChain& chain, double hz, int turns, double amplitude = 0.05) {
    std::vector<Ipp64fc> read(AudioChain::kReadSamples);
    std::vector<float> audio;
    std::vector<float> block(AudioChain::kBlockSamples);
    long long n = 0;
    for (int t = 0; t < turns; ++t) {
        bool full = false;
        while (!full) {
            for (auto& x : read) {
                const double phase = 2 * M_PI * hz * static_cast<double>(n++) / kRate;
                x = {amplitude * std::cos(phase), amplitude * std::sin(phase)};
            }
            full = chain.Take(read.data());
        }
        chain.Run(block.data());
        audio.insert(audio.end(), block.begin(), block.end());
    }
    return audio;
}

TEST(AudioChain, ChannelFilterLengthAtTheBandwidthBorders) {
    const std::pair<double, int> cases[] = {{999.0, 4096}, {1000.0, 2048}, {1999.0, 2048}, {2000.0, 1024}};
    for (const auto& [bandwidth, taps] : cases) {
        qor::AudioLevels levels;
        EXPECT_EQ(AudioChain(AudioSettings(qor::AudioUSB, bandwidth), 0.0, levels).ChannelTaps(), taps) << bandwidth;
    }
}

// A tone 1500 Hz above the tuning in USB is one sine across the seams of the
// turns: two turns fit as one clean tone. (Its peak, twice 0.05, is the level
// the sidebands start from, so no turn is louder than the next.)
TEST(AudioChain, SidebandToneRunsOnAcrossTheSeam) {
    qor::AudioLevels levels;
    AudioChain chain(AudioSettings(qor::AudioUSB, 6000.0), 0.0, levels);
    const std::vector<float> audio = Demodulate(chain, 1500.0, 8);
    const std::vector<float> lastTwo(audio.end() - 2 * AudioChain::kBlockSamples, audio.end());
    const audiotest::ToneFit fit = audiotest::FitTone(lastTwo, AudioChain::kAudioRate, 1000.0, 2000.0);
    EXPECT_NEAR(fit.frequency, 1500.0, 0.01);
    EXPECT_GT(fit.sinadDb, 60.0);
}

// The sidebands' level after a turn is the peak followed sample by sample
// (up at once, down by the decay): bursts at the start, in the middle and at
// the very end of the turn, and a NaN that makes it restart.
TEST(AudioChain, SidebandLevelFollowsThePeakSampleBySample) {
    const int length = AudioChain::kTurnSamples + 5;
    std::vector<Ipp32fc> channel(length);
    std::vector<Ipp32f> audio(length);
    for (int i = 0; i < length; ++i) {
        const float burst = (i % 20011 < 40 || i == length - 1) ? 3.0f : 0.2f;
        channel[i] = {burst * static_cast<float>(std::cos(i * 0.01)), burst * static_cast<float>(std::sin(i * 0.013))};
    }
    const double d = std::pow(2.71828, -1e-05);
    double expected = 0.5;
    for (const Ipp32fc z : channel) {
        const float x = static_cast<float>(2.0 * static_cast<float>(std::sqrt(double{z.re} * z.re + double{z.im} * z.im)));
        expected = x > expected ? x : (1.0 - d) * x + d * expected;
    }
    qor::AudioLevels levels;
    levels.sideband = 0.5;
    auto demodulator = qor::MakeAudioDemodulator(qor::AudioUSB, levels, 3000.0, 75.0, length);
    demodulator->Run(channel.data(), audio.data(), length);
    EXPECT_NEAR(levels.sideband, expected, 1e-9 * expected);
    channel[777].re = std::numeric_limits<float>::quiet_NaN();
    demodulator->Run(channel.data(), audio.data(), length);
    EXPECT_EQ(levels.sideband, qor::AudioLevels::kStart);
}

// AM's output is the depth around a mean followed sample by sample, the
// mean carried from turn to turn (also over turns of a ragged length).
TEST(AudioChain, AmFollowsTheMeanSampleBySample) {
    const int length = AudioChain::kTurnSamples + 5;
    std::vector<Ipp32fc> channel(length);
    std::vector<Ipp32f> audio(length);
    for (int i = 0; i < length; ++i) {
        const float a = (i % 20011 < 3000 ? 3.0f : 0.2f) * static_cast<float>(1.0 + 0.5 * std::sin(i * 0.02));
        channel[i] = {a * static_cast<float>(std::cos(i * 0.01)), a * static_cast<float>(std::sin(i * 0.01))};
    }
    const double d = std::pow(2.71828, -1.5625e-05);
    qor::AudioLevels levels;
    double mean = levels.am;
    auto demodulator = qor::MakeAudioDemodulator(qor::AudioAM, levels, 3000.0, 75.0, length);
    for (int turn = 0; turn < 2; ++turn) {
        demodulator->Run(channel.data(), audio.data(), length);
        double worst = 0.0;
        for (int i = 0; i < length; ++i) {
            const Ipp32fc z = channel[i];
            const double m = static_cast<float>(std::sqrt(double{z.re} * z.re + double{z.im} * z.im));
            mean = m * (1.0 - d) + mean * d;
            const double want = (m - mean) / mean;
            worst = std::max(worst, std::fabs(audio[i] - want) / std::max(1.0, std::fabs(want)));
        }
        EXPECT_LT(worst, 3e-7) << "turn " << turn;
        EXPECT_NEAR(levels.am, mean, 1e-12 * mean) << "turn " << turn;
    }
}

// A turn whose AM level turned infinite or NaN: its own output is silence,
// the level starts again at 0.1 and the next turn is audio again.
TEST(AudioChain, AnOverflowedLevelRestartsAtTheStart) {
    for (double broken : {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        qor::AudioLevels levels;
        levels.am = broken;
        AudioChain chain(AudioSettings(qor::AudioAM, 10000.0), 0.0, levels);
        const std::vector<float> lost = Demodulate(chain, 0.0, 1);
        EXPECT_EQ(levels.am, qor::AudioLevels::kStart);
        const std::vector<float> next = Demodulate(chain, 0.0, 1);
        for (std::size_t i = 0; i < lost.size(); ++i) {
            ASSERT_TRUE(std::isfinite(lost[i]) && std::isfinite(next[i])) << "sample " << i;
        }
    }
}

// Behind the low pass, the sidebands run phasing and low pass as one filter
// that computes only the outputs kept; it must give what the two filters in
// turn give, also across turns whose levels differ (the low pass of a
// turn's first outputs reaches into the turn before, divided by its level).
TEST(AudioChain, SidebandsSampledDownEqualPhasingThenLowPass) {
    constexpr int kTurn = AudioChain::kTurnSamples, kFactor = AudioChain::kDownFactor;
    const double cutoff = 3000.0 / kRate;
    for (int type : {qor::AudioUSB, qor::AudioLSB}) {
        qor::AudioLevels fusedLevels, wideLevels;
        qor::AudioFirFilter fusedLowPass(cutoff), wideLowPass(cutoff);
        auto fused = qor::MakeAudioDemodulator(type, fusedLevels, 3000.0, 75.0, kTurn, &fusedLowPass, kFactor);
        auto wide = qor::MakeAudioDemodulator(type, wideLevels, 3000.0, 75.0, kTurn);
        std::vector<Ipp32fc> channel(kTurn);
        std::vector<Ipp32f> scratch(kTurn), got(kTurn / kFactor), want(kTurn / kFactor);
        long long n = 0;
        // The level jumps from turn to turn: each turn louder than the last.
        for (double amplitude : {0.02, 0.3, 2.0, 5.0}) {
            for (auto& z : channel) {
                const double t = static_cast<double>(n++);
                z = {static_cast<float>(amplitude * (std::cos(t * 0.011) + 0.5 * std::sin(t * 0.0031))),
                     static_cast<float>(amplitude * (std::sin(t * 0.011) - 0.3 * std::cos(t * 0.0057)))};
            }
            fused->RunDown(channel.data(), kTurn, scratch.data(), got.data());
            wide->Run(channel.data(), scratch.data(), kTurn);
            int phase = 0;
            wideLowPass.RunDown(scratch.data(), kTurn, want.data(), kFactor, &phase);
            float largest = 0.0f, worst = 0.0f;
            for (int j = 0; j < kTurn / kFactor; ++j) {
                largest = std::max(largest, std::fabs(want[j]));
                worst = std::max(worst, std::fabs(got[j] - want[j]));
            }
            EXPECT_LT(worst, 2e-6f * largest) << "type " << type << ", amplitude " << amplitude;
            EXPECT_EQ(fusedLevels.sideband, wideLevels.sideband);
        }
    }
}

}  // namespace
