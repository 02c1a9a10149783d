// Measuring a tone in audio samples: its frequency (the peak of a
// Hann-windowed spectrum, refined to a thousandth of a hertz), its amplitude
// by a least-squares fit of a sine, a cosine and an offset, and the signal to
// noise and distortion: the fitted tone's power against everything the fit
// leaves over.
#ifndef QOR_TESTS_SUPPORT_AUDIO_ANALYSIS_H
#define QOR_TESTS_SUPPORT_AUDIO_ANALYSIS_H

#include <cmath>
#include <complex>
#include <vector>

namespace audiotest {

struct ToneFit {
    double frequency = 0.0;  // Hz
    double amplitude = 0.0;
    double sinadDb = -300.0;
};

namespace detail {

constexpr double kTwoPi = 6.283185307179586476925286766559;


// Magnitude of the spectrum of windowed samples at `hz`.
inline double WindowedMagnitude(const std::vector<double>& w, double rate, double hz) {
    std::complex<double> sum, turn(1.0, 0.0);
    const std::complex<double> step = std::polar(1.0, -kTwoPi * hz / rate);
    for (std::size_t i = 0; i < w.size(); ++i, turn *= step) sum += turn * w[i];
    return std::abs(sum);
}

struct Fit {
    double a, b, c;  // a cos + b sin + c
    double residualPower;
};

// Least squares of a cos + b sin + c at `hz`, by the normal equations.
inline Fit FitAt(const std::vector<float>& x, double rate, double hz) {
    double m[3][4] = {};
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double t = kTwoPi * hz * i / rate;
        const double basis[3] = {std::cos(t), std::sin(t), 1.0};
        for (int r = 0; r < 3; ++r) {
            for (int k = 0; k < 3; ++k) m[r][k] += basis[r] * basis[k];
            m[r][3] += basis[r] * x[i];
        }
    }
    for (int p = 0; p < 3; ++p) {
        for (int r = 0; r < 3; ++r) {
            if (r == p) continue;
            const double f = m[r][p] / m[p][p];
            for (int k = p; k < 4; ++k) m[r][k] -= f * m[p][k];
        }
    }
    Fit fit{m[0][3] / m[0][0], m[1][3] / m[1][1], m[2][3] / m[2][2], 0.0};
    for (std::size_t i = 0; i < x.size(); ++i) {
        const double t = kTwoPi * hz * i / rate;
        fit.residualPower += std::pow(x[i] - (fit.a * std::cos(t) + fit.b * std::sin(t) + fit.c), 2);
    }
    fit.residualPower /= static_cast<double>(x.size());
    return fit;
}

}  // namespace detail

// The amplitude of the tone at `hz`.
inline double AmplitudeAt(const std::vector<float>& x, double rate, double hz) {
    const detail::Fit f = detail::FitAt(x, rate, hz);
    return std::hypot(f.a, f.b);
}

// The strongest tone between `low` and `high` Hz.
inline ToneFit FitTone(const std::vector<float>& x, double rate, double low, double high) {
    constexpr double kStep = 5.0;  // well inside the main lobe of 4096 samples' window (30 Hz)
    std::vector<double> w(x.size());  // the samples under a Hann window
    for (std::size_t i = 0; i < w.size(); ++i) {
        w[i] = x[i] * (0.5 - 0.5 * std::cos(detail::kTwoPi * (i + 0.5) / w.size()));
    }
    double best = low, bestMagnitude = -1.0;
    for (double hz = low; hz <= high; hz += kStep) {
        const double m = detail::WindowedMagnitude(w, rate, hz);
        if (m > bestMagnitude) bestMagnitude = m, best = hz;
    }
    // Golden-section search for the peak within a step on either side.
    const double g = 0.6180339887498949;
    double a = best - kStep, b = best + kStep;
    while (b - a > 1e-3) {
        const double c = b - g * (b - a), d = a + g * (b - a);
        const bool left = detail::WindowedMagnitude(w, rate, c) > detail::WindowedMagnitude(w, rate, d);
        (left ? b : a) = left ? d : c;
    }
    ToneFit fit;
    fit.frequency = (a + b) / 2;
    const detail::Fit f = detail::FitAt(x, rate, fit.frequency);
    fit.amplitude = std::hypot(f.a, f.b);
    const double signal = fit.amplitude * fit.amplitude / 2;
    fit.sinadDb = f.residualPower > 0.0 ? 10 * std::log10(signal / f.residualPower) : 300.0;
    return fit;
}

}  // namespace audiotest

#endif
