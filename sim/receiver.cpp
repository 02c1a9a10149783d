#include "receiver.h"

#include <algorithm>
#include <cmath>

namespace qorsim {

namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;
// Farther from the IF centre than this a signal is gone behind the IF filter.
constexpr double kIfReach = 400e3;
constexpr int kNoiseTaps = 48;
constexpr size_t kNoisePool = 1 << 16;
// The converter's own noise: about 1 LSB rms on I and on Q, white over the
// whole sampled band, so that a quiet input never reads as exact zeros. A
// noise floor of -250 dBm/Hz or less stands for an ideal, noiseless unit.
constexpr double kAdcNoiseLsb = 1.0;
constexpr size_t kAdcNoisePool = 1 << 14;

// 2 pi times the fractional part of `cycles`, computed in extended precision.
double TurnsToRadians(long double cycles) {
    long double whole;
    const long double frac = std::modf(cycles, &whole);
    return kTwoPi * static_cast<double>(frac);
}

// The key of a keyed carrier at `t` seconds: on for `duration` of every
// `period`, with raised-cosine edges of `rise` inside the on-time, so that
// keying leaves no clicks far from the carrier. A rise of 0 is a hard key.
double KeyEnvelope(double t, const SignalSpec& s, double rise) {
    t -= s.delay;
    if (t < 0.0) return 0.0;
    const double into = std::fmod(t, s.period);
    if (into >= s.duration) return 0.0;
    const double edge = std::min(into, s.duration - into);
    return edge >= rise ? 1.0 : 0.5 - 0.5 * std::cos(kTwoPi * 0.5 * edge / rise);
}

}  // namespace

Receiver::Receiver(const UnitModel& model, uint32_t seed)
    : model_(model), rng_(0x9E3779B97F4A7C15ull ^ (static_cast<uint64_t>(seed) << 17 | seed)),
      scratch_(kBlockSamples) {}

bool Receiver::Placement(const FrontEnd& fe, double rf, double* b, bool* mirrored) {
    double f1 = rf;
    bool inverted = false;
    if (fe.firstLo > 0.0) {
        f1 = std::fabs(rf - fe.firstLo);
        inverted = rf < fe.firstLo;
    }
    const double ifFrequency = std::fabs(f1 - fe.lo);
    inverted ^= f1 > fe.lo;
    *b = fe.ifCenter - ifFrequency;
    // With the alternate clock the high IF reaches the samples turned over.
    if (fe.highIf && fe.sampleRate == kAlternateSampleRate) {
        *b = -*b;
        inverted = !inverted;
    }
    *mirrored = inverted;
    return std::fabs(*b) < kIfReach;
}

void Receiver::AddSignal(const FrontEnd& fe, const SignalSpec& s, double amplitude, double b, bool mirrored,
                         uint64_t start, std::complex<double>* out) const {
    const double fs = fe.sampleRate;
    const double sign = mirrored ? -1.0 : 1.0;
    std::complex<double> carrier = std::polar(amplitude, TurnsToRadians((long double)b * start / fs) + sign * s.phase);
    const std::complex<double> step = std::polar(1.0, kTwoPi * b / fs);
    // The modulating tone as a rotor on the same absolute time.
    std::complex<double> tone = std::polar(1.0, TurnsToRadians((long double)s.tone * start / fs));
    const std::complex<double> toneStep = std::polar(1.0, kTwoPi * s.tone / fs);
    switch (s.kind) {
        case SignalKind::Cw:
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step) out[i] += carrier;
            break;
        case SignalKind::Am:
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step, tone *= toneStep)
                out[i] += carrier * (1.0 + s.depth * tone.real());
            break;
        case SignalKind::Fm: {
            const double beta = s.tone > 0.0 ? s.deviation / s.tone : 0.0;
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step, tone *= toneStep)
                out[i] += carrier * std::polar(1.0, sign * beta * tone.imag());
            break;
        }
        case SignalKind::Burst:
        case SignalKind::Hop:  // one burst per channel (RenderComplex)
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step)
                out[i] += carrier * KeyEnvelope(static_cast<double>(start + i) / fs, s, 0.0);
            break;
        case SignalKind::Keyed:
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step)
                out[i] += carrier * KeyEnvelope(static_cast<double>(start + i) / fs, s, s.rise);
            break;
        case SignalKind::Usb:
        case SignalKind::Lsb: {
            // The suppressed carrier's one sideband: the tone above or below it
            // (mirrored with the envelope when the band turns the spectrum over).
            const double side = s.kind == SignalKind::Usb ? sign : -sign;
            for (int i = 0; i < kBlockSamples; ++i, carrier *= step, tone *= toneStep)
                out[i] += carrier * std::complex<double>(tone.real(), side * tone.imag());
            break;
        }
    }
}

uint64_t Receiver::NextRandom() {
    // xorshift64*
    rng_ ^= rng_ >> 12;
    rng_ ^= rng_ << 25;
    rng_ ^= rng_ >> 27;
    return rng_ * 2685821657736338717ull;
}

double Receiver::Gaussian() {
    // Box-Muller; two uniform draws per normal value.
    auto uniform = [this] { return (NextRandom() >> 11) * (1.0 / 9007199254740992.0); };
    const double u1 = 1.0 - uniform();
    const double u2 = uniform();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(kTwoPi * u2);
}

const std::vector<std::complex<double>>& Receiver::NoiseFilter(bool highIf) {
    auto& h = noiseFilter_[highIf ? 1 : 0];
    if (!h.empty()) return h;
    // Frequency sampling of the IF filter's amplitude across the sampled band,
    // centred and Hann-windowed: the noise gets the shape the signals see.
    const int m = kNoiseTaps;
    std::vector<double> amplitude(m);
    for (int k = 0; k < m; ++k) amplitude[k] = std::pow(10.0, model_.IfFilterDb(highIf, (k - m / 2) * kSampleRate / m) / 20.0);
    h.assign(m, {});
    for (int n = 0; n < m; ++n) {
        std::complex<double> sum;
        for (int k = 0; k < m; ++k) sum += amplitude[k] * std::polar(1.0, kTwoPi * (k - m / 2) * (n - m / 2) / double(m));
        const double window = 0.5 - 0.5 * std::cos(kTwoPi * (n + 0.5) / m);
        h[n] = sum * window / double(m);
    }
    // Keep the noise power of the sampled filter.
    double target = 0.0, actual = 0.0;
    for (double a : amplitude) target += a * a / m;
    for (const auto& tap : h) actual += std::norm(tap);
    for (auto& tap : h) tap *= std::sqrt(target / actual);
    return h;
}

void Receiver::AddNoise(bool highIf, double power, std::complex<double>* out) {
    // A block of the unit's shaped noise from a random place of its pool,
    // turned by a random phase: the spectrum of the IF filter, at the cost of
    // a copy. The pool is made once, by the filter running round white noise.
    auto& pool = noisePool_[highIf ? 1 : 0];
    if (pool.empty()) {
        const auto& h = NoiseFilter(highIf);
        std::vector<std::complex<double>> white(kNoisePool);
        for (auto& w : white) w = {Gaussian() * std::sqrt(0.5), Gaussian() * std::sqrt(0.5)};
        pool.resize(kNoisePool);
        for (size_t i = 0; i < kNoisePool; ++i) {
            std::complex<double> acc;
            for (size_t n = 0; n < h.size(); ++n) acc += h[n] * white[(i + kNoisePool - n) % kNoisePool];
            pool[i] = acc;
        }
    }
    const size_t from = static_cast<size_t>(NextRandom() % (kNoisePool - kBlockSamples));
    const std::complex<double> turn = std::polar(std::sqrt(power), kTwoPi * (NextRandom() >> 11) * (1.0 / 9007199254740992.0));
    for (int i = 0; i < kBlockSamples; ++i) out[i] += turn * pool[from + i];
}

void Receiver::RenderComplex(const FrontEnd& fe, const std::vector<SignalSpec>& signals, double noiseFloor,
                             double temperature, uint64_t start, std::complex<double>* out) {
    std::fill(out, out + kBlockSamples, std::complex<double>());
    for (const auto& signal : signals) {
        if (signal.kind == SignalKind::Hop) {
            // Channel k is a burst of one dwell, k dwells into each round of all channels.
            const int channels = static_cast<int>(signal.frequencies.size());
            for (int k = 0; k < channels; ++k) {
                SignalSpec channel = signal;
                channel.frequency = signal.frequencies[k];
                channel.period = channels * signal.dwell;
                channel.duration = signal.dwell;
                channel.delay = signal.delay + k * signal.dwell;
                AddPlaced(fe, channel, temperature, start, out);
            }
            continue;
        }
        AddPlaced(fe, signal, temperature, start, out);
    }
    if (noiseFloor > -250.0) {
        const double densityDb = noiseFloor + model_.NoiseGainDb(fe, temperature);
        AddNoise(fe.highIf, std::pow(10.0, densityDb / 10.0) * fe.sampleRate, out);
    }
}

void Receiver::AddPlaced(const FrontEnd& fe, const SignalSpec& s, double temperature, uint64_t start,
                         std::complex<double>* out) const {
    double b;
    bool mirrored;
    if (!Placement(fe, s.frequency, &b, &mirrored)) return;
    const double levelDb = s.level + model_.PathGainDb(fe, s.frequency, b, temperature);
    if (levelDb < -200.0) return;
    AddSignal(fe, s, std::pow(10.0, levelDb / 20.0), b, mirrored, start, out);
}

void Receiver::Render(const FrontEnd& fe, const std::vector<SignalSpec>& signals, double noiseFloor,
                      double temperature, uint64_t start, int16_t* iq) {
    RenderComplex(fe, signals, noiseFloor, temperature, start, scratch_.data());
    if (adcNoise_.empty()) {
        adcNoise_.resize(kAdcNoisePool);
        for (double& n : adcNoise_) n = Gaussian() * kAdcNoiseLsb;
    }
    const double* adc = adcNoise_.data() + NextRandom() % (kAdcNoisePool - 2 * kBlockSamples);
    const double adcScale = noiseFloor > -250.0 ? 1.0 : 0.0;
    auto quantise = [](double v, double noiseLsb) {
        const double x = std::nearbyint(v * 32768.0 + noiseLsb);
        return static_cast<int16_t>(std::clamp(x, -32768.0, 32767.0));
    };
    for (int i = 0; i < kBlockSamples; ++i) {
        iq[2 * i] = quantise(scratch_[i].real(), adcScale * adc[2 * i]);
        iq[2 * i + 1] = quantise(scratch_[i].imag(), adcScale * adc[2 * i + 1]);
    }
}

}  // namespace qorsim
