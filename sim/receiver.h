// The receiver chain from the scene at the input to the 16-bit samples: both
// mixers with the responses on both sides of each LO, the path gain of the
// unit model, the input noise floor, quantisation and clipping at full scale.
#ifndef QOR_SIM_RECEIVER_H
#define QOR_SIM_RECEIVER_H

#include <complex>
#include <cstdint>
#include <vector>

#include "bench.h"
#include "front_end.h"
#include "unit_model.h"

namespace qorsim {

class Receiver {
public:
    Receiver(const UnitModel& model, uint32_t seed);

    // Renders kBlockSamples samples (I then Q, signed 16-bit) of the samples
    // that start at absolute sample index `start`. Signals keep their phase
    // as a function of that index, so consecutive blocks at one tuning join
    // without a seam.
    void Render(const FrontEnd& fe, const std::vector<SignalSpec>& signals, double noiseFloor,
                double temperature, uint64_t start, int16_t* iq);

    // The same before quantisation, in full-scale units.
    void RenderComplex(const FrontEnd& fe, const std::vector<SignalSpec>& signals, double noiseFloor,
                       double temperature, uint64_t start, std::complex<double>* out);

    // Where a signal at `rf` lands in the samples (Hz), and whether its
    // spectrum arrives mirrored; false when it falls outside the IF.
    static bool Placement(const FrontEnd& fe, double rf, double* b, bool* mirrored);

private:
    // One signal where the front end places it, if it reaches the samples.
    void AddPlaced(const FrontEnd& fe, const SignalSpec& s, double temperature, uint64_t start,
                   std::complex<double>* out) const;
    void AddSignal(const FrontEnd& fe, const SignalSpec& s, double amplitude, double b, bool mirrored,
                   uint64_t start, std::complex<double>* out) const;
    void AddNoise(bool highIf, double power, std::complex<double>* out);
    const std::vector<std::complex<double>>& NoiseFilter(bool highIf);
    double Gaussian();
    uint64_t NextRandom();

    const UnitModel& model_;
    uint64_t rng_;
    std::vector<std::complex<double>> scratch_;
    // The IF filter for the noise, and a pool of noise shaped by it, per IF path.
    std::vector<std::complex<double>> noiseFilter_[2];
    std::vector<std::complex<double>> noisePool_[2];
    // The converter's own white noise, in LSB, drawn from at random offsets.
    std::vector<double> adcNoise_;
};

}  // namespace qorsim

#endif
