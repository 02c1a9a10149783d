#include "audio_demodulators.h"

#include <cassert>
#include <cmath>

#include "audio_phasing.h"
#include "first_order_lanes.h"

namespace qor {
namespace {

constexpr double kPi = 3.14159265358979323846;
// Decay per sample of the levels: AM's mean follows within 64000 samples
// (0.13 s), the sidebands' peak falls within 100000 (0.2 s).
const double kAmDecay = std::pow(2.71828, -1.5625e-05);
const double kSidebandDecay = std::pow(2.71828, -1e-05);
// FM: a phase step of 160000 / bandwidth rad per sample is full scale.
constexpr double kFmScaleHz = 160000.0;
// De-emphasis: 1 / (2 pi tau) relative to 486111.11 samples/s, tau in us.
constexpr double kDeemphasisPerUs = 0.3275;
// The quadrature filter: 2047 taps, delay 1023.
constexpr int kHilbertTaps = 2047;
constexpr int kHilbertDelay = 1023;
constexpr double kTwoOverPi = 0.6366197723675394;

void KeepFinite(double& level) {
    if (!std::isfinite(level)) level = AudioLevels::kStart;
}

// The sidebands' peak follower over a block: for each x = 2 m, the peak
// becomes x if x is above it, else (1 - d) x + d peak; that is
// peak = max(x, (1 - d) x + d peak). Each sample is the map
// p -> max(a, b + g p), and two such maps compose into one of the same form,
// so eight stretches of the block are followed side by side (no sample
// waits for the one before) and their maps applied to the peak in turn.
// A NaN stays in the map and so reaches the peak. (2 m in float is the
// double 2 m rounded to float: doubling is exact up to the overflow to inf.)
double FollowPeak(const Ipp32f* magnitude, int length, double peak) {
    constexpr int kLanes = 8;
    const double d = kSidebandDecay, e = 1.0 - kSidebandDecay;
    const auto step = [d, e](double x, double& a, double& b) {
        const double decayed = e * x + d * a;
        a = x > decayed ? x : decayed;
        b = e * x + d * b;
    };
    const int stretch = length / kLanes;
    // Lanes in pairs, one pair to a 128-bit register of the compiler's vectors.
    typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
    constexpr int kPairs = kLanes / 2;
    Pair pa[kPairs], pb[kPairs];
    for (int p = 0; p < kPairs; ++p) pa[p] = Pair{-HUGE_VAL, -HUGE_VAL}, pb[p] = Pair{0.0, 0.0};
    for (int i = 0; i < stretch; ++i) {
        for (int p = 0; p < kPairs; ++p) {
            const Pair x = {2.0f * magnitude[2 * p * stretch + i], 2.0f * magnitude[(2 * p + 1) * stretch + i]};
            const Pair ex = e * x;
            const Pair decayed = ex + d * pa[p];
            pa[p] = x > decayed ? x : decayed;
            pb[p] = ex + d * pb[p];
        }
    }
    double a[kLanes], b[kLanes];
    for (int l = 0; l < kLanes; ++l) a[l] = pa[l / 2][l % 2], b[l] = pb[l / 2][l % 2];
    const double g = std::pow(d, stretch);
    for (int l = 0; l < kLanes; ++l) {
        const double decayed = b[l] + g * peak;
        peak = a[l] > decayed ? a[l] : decayed;
    }
    for (int i = kLanes * stretch; i < length; ++i) {
        double tailB = 0.0;
        step(2.0f * magnitude[i], peak, tailB);
    }
    return peak;
}

// The odd-offset taps 2 / (pi n) of the ideal transformer, Blackman-windowed.
smart_array<Ipp64f> HilbertTaps() {
    smart_array<Ipp64f> taps(kHilbertTaps);
    for (int i = 0; i < kHilbertTaps; ++i) {
        taps[i] = i % 2 == 0 ? kTwoOverPi / (i - kHilbertDelay) : 0.0;
    }
    ippsWinBlackmanStd_64f_I(taps.get(), kHilbertTaps);
    return taps;
}

class AmDemodulator : public AudioDemodulator {
public:
    AmDemodulator(double& level, AudioFirFilter* lowPass, int factor) : AudioDemodulator(lowPass, factor), level(level) {
        double power = 1.0;
        for (double& p : powers) p = power *= kAmDecay;
    }

    void Run(const Ipp32fc* channel, Ipp32f* audio, int length) override {
        ippsMagnitude_32fc(channel, audio, length);
        double mean = level;
        for (int at = 0; at < length; at += kPiece) {
            const int count = length - at < kPiece ? length - at : kPiece;
            mean = FollowMean(audio + at, count, mean);
            for (int i = 0; i < count; ++i) {
                const double m = audio[at + i];
                audio[at + i] = static_cast<float>((m - means[i]) / means[i]);
            }
        }
        level = mean;
        // That turn is lost; silence keeps its 0 / 0 out of the memories of the
        // filters behind, where it would stay for good.
        if (!std::isfinite(level)) ippsZero_32f(audio, length);
        KeepFinite(level);
    }

private:
    // The mean follows m[n] as mean[n] = (1 - d) m[n] + d mean[n - 1]: a
    // recursion run in lanes, in pieces whose means stay in the first-level cache.
    static constexpr int kLanes = qor_prim::kRecursionLanes;
    static constexpr int kStretch = 512;
    static constexpr int kPiece = kLanes * kStretch;

    // The means of `count` magnitudes into `means`, from `mean`; returns the last.
    double FollowMean(const Ipp32f* m, int count, double mean) {
        const int stretch = count / kLanes;
        if (stretch > 0) {
            for (int i = 0; i < kLanes * stretch; ++i) means[i] = m[i] * (1.0 - kAmDecay);
            means[0] += mean * kAmDecay;
            qor_prim::RecurseInLanes(means, stretch, kAmDecay, powers);
            mean = means[kLanes * stretch - 1];
        }
        for (int i = kLanes * stretch; i < count; ++i) means[i] = mean = m[i] * (1.0 - kAmDecay) + mean * kAmDecay;
        return mean;
    }

    double& level;
    double powers[kStretch];  // d^(i + 1)
    double means[kPiece];
};

class FmDemodulator : public AudioDemodulator {
public:
    FmDemodulator(float& previous, double bandwidthHz, double deemphasisUs, AudioFirFilter* lowPass, int factor)
        : AudioDemodulator(lowPass, factor),
          previous(previous),
          scale(static_cast<float>(kFmScaleHz / bandwidthHz)),
          deemphasis(kDeemphasisPerUs / deemphasisUs, 0.2, 1, ippButterworth, false) {}

    void Run(const Ipp32fc* channel, Ipp32f* audio, int length) override {
        ippsPhase_32fc(channel, audio, length);
        float last = previous;
        for (int i = 0; i < length; ++i) {
            const float p = audio[i];
            float delta = p - last;
            if (delta > kPi) {
                delta = static_cast<float>(delta - 2.0 * kPi);
            } else if (delta < -kPi) {
                delta = static_cast<float>(delta + 2.0 * kPi);
            }
            audio[i] = delta * scale;
            last = p;
        }
        previous = last;
        deemphasis.Run(audio, length);
    }

private:
    float& previous;
    const float scale;
    AudioIirFilter deemphasis;
};

class SidebandDemodulator : public AudioDemodulator {
public:
    // With a low pass, only what RunDown needs is made.
    SidebandDemodulator(double& level, bool upper, int blockLength, AudioFirFilter* lowPass, int factor)
        : AudioDemodulator(lowPass, factor), level(level), sign(upper ? 1.0 : -1.0) {
        const smart_array<Ipp64f> taps = HilbertTaps();
        if (lowPass != nullptr) {
            phasingDown = std::make_unique<AudioPhasingDown>(taps.get(), kHilbertTaps, sign, *lowPass, factor,
                                                             blockLength);
            return;
        }
        realPart.Allocate(blockLength);
        hilbertOut.Allocate(blockLength);
        quadratureDelay.Allocate(kHilbertDelay);
        ippsFIRInitAlloc_64f(&hilbert, taps.get(), kHilbertTaps, nullptr);
        ippsZero_64f(quadratureDelay.get(), kHilbertDelay);
    }
    ~SidebandDemodulator() override {
        if (hilbert != nullptr) ippsFIRFree_64f(hilbert);
    }
    SidebandDemodulator(const SidebandDemodulator&) = delete;
    SidebandDemodulator& operator=(const SidebandDemodulator&) = delete;

    // `length` must be at least the transformer's delay.
    void Run(const Ipp32fc* channel, Ipp32f* audio, int length) override {
        const double gain = 1.0 / FollowLevel(channel, audio, length);
        for (int i = 0; i < length; ++i) realPart[i] = sign * channel[i].re;
        ippsFIR_64f(realPart.get(), hilbertOut.get(), length, hilbert);
        // The imaginary path, 1023 samples late: the head of the block from the
        // tail of the last one.
        const int seam = length - kHilbertDelay;
        for (int i = 0; i < kHilbertDelay; ++i) {
            audio[i] = static_cast<float>((hilbertOut[i] + quadratureDelay[i]) * gain);
            quadratureDelay[i] = channel[i + seam].im;
        }
        for (int i = kHilbertDelay; i < length; ++i) {
            audio[i] = static_cast<float>((hilbertOut[i] + channel[i - kHilbertDelay].im) * gain);
        }
    }

    void RunDown(const Ipp32fc* channel, int length, Ipp32f* wide, Ipp32f* block) override {
        const double gain = 1.0 / FollowLevel(channel, wide, length);
        phasingDown->Run(channel, length, gain, block);
    }

private:
    // The level of the turn, which divides it; `scratch` holds `length` samples.
    double FollowLevel(const Ipp32fc* channel, Ipp32f* scratch, int length) {
        ippsMagnitude_32fc(channel, scratch, length);
        level = FollowPeak(scratch, length, level);
        KeepFinite(level);
        return level;
    }

    double& level;
    const double sign;  // of the real path: + passes the upper sideband, - the lower
    smart_array<Ipp64f> realPart;
    smart_array<Ipp64f> hilbertOut;
    smart_array<Ipp64f> quadratureDelay;  // the last 1023 imaginary parts of the block before
    IppsFIRState_64f* hilbert = nullptr;
    std::unique_ptr<AudioPhasingDown> phasingDown;  // with a low pass: phasing and low pass as one
};

}  // namespace

void AudioDemodulator::RunDown(const Ipp32fc* channel, int length, Ipp32f* wide, Ipp32f* block) {
    Run(channel, wide, length);
    int phase = 0;
    lowPass->RunDown(wide, length, block, factor, &phase);
    assert(phase == 0);
}

std::unique_ptr<AudioDemodulator> MakeAudioDemodulator(int type, AudioLevels& levels, double bandwidthHz,
                                                       double deemphasisUs, int blockLength, AudioFirFilter* lowPass,
                                                       int factor) {
    switch (type) {
        case AudioFM:
            return std::make_unique<FmDemodulator>(levels.previousPhase, bandwidthHz, deemphasisUs, lowPass, factor);
        case AudioUSB:
            return std::make_unique<SidebandDemodulator>(levels.sideband, true, blockLength, lowPass, factor);
        case AudioLSB:
            return std::make_unique<SidebandDemodulator>(levels.sideband, false, blockLength, lowPass, factor);
        case AudioCW:
            return std::make_unique<SidebandDemodulator>(levels.cw, false, blockLength, lowPass, factor);
        default:
            return std::make_unique<AmDemodulator>(levels.am, lowPass, factor);
    }
}

}  // namespace qor
