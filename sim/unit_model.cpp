#include "unit_model.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace qorsim {

namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;

// Nominal roll-off of the IF filters in dB, one value per kHz of offset from
// the IF centre, 0 to 125 kHz; the filter's passband swells towards 80 kHz
// and falls beyond 110 kHz.
constexpr std::array<double, 126> kRolloff{{
    0.0, 0.001, 0.0, 0.001, 0.006, 0.007, 0.011, 0.015, 0.021, 0.026, 0.03, 0.035, 0.047, 0.052, 0.061, 0.071,
    0.079, 0.089, 0.1, 0.11, 0.121, 0.133, 0.144, 0.156, 0.17, 0.184, 0.196, 0.212, 0.226, 0.243, 0.256, 0.269,
    0.287, 0.303, 0.32, 0.331, 0.352, 0.366, 0.387, 0.402, 0.415, 0.434, 0.45, 0.466, 0.484, 0.501, 0.517, 0.534,
    0.549, 0.566, 0.582, 0.598, 0.611, 0.629, 0.643, 0.658, 0.67, 0.684, 0.698, 0.711, 0.724, 0.736, 0.75, 0.756,
    0.768, 0.779, 0.789, 0.796, 0.805, 0.812, 0.82, 0.828, 0.833, 0.837, 0.845, 0.844, 0.849, 0.85, 0.85, 0.851,
    0.852, 0.851, 0.848, 0.845, 0.842, 0.835, 0.831, 0.823, 0.816, 0.805, 0.799, 0.787, 0.776, 0.763, 0.75, 0.733,
    0.721, 0.704, 0.685, 0.664, 0.644, 0.624, 0.603, 0.58, 0.554, 0.528, 0.501, 0.471, 0.445, 0.41, 0.38, 0.347,
    0.314, 0.28, 0.241, 0.203, 0.166, 0.123, 0.083, 0.038, -0.004, -0.049, -0.095, -0.144, -0.196, -0.247}};

constexpr std::array<double, 12> kOrskRecordTemperatures{{-15, -5, 5, 10, 15, 22, 28, 35, 42, 48, 55, 70}};

// Beyond this the IF filter's skirt falls 3 dB per kHz.
constexpr double kSkirtStart = 250e3;
// Out-of-band signals are this far down behind the band filters.
constexpr double kBandRejection = -70.0;

// 12.4 GHz family's detector: a log amplifier read by a converter whose code
// rises 10 per dB from code 0 at -80 dBm, with a small bow; its own noise
// floor; and soft limiting towards +5 dBm. The two ranges hand over at codes 600
// to 700 of the sensitive one (-20 to -10 dBm, before it limits), where the
// other range still lies 25 dB and more above the floor.
constexpr double kDetectorFloor = -75.0;
constexpr double kDetectorLimit = 5.0;
constexpr double kDetectorCodeZero = -80.0;
constexpr double kDetectorCodesPerDb = 10.0;
constexpr double kDetectorBow = 0.4;
constexpr double kDetectorBowPeriod = 800.0;
// The IF filter in front of either family's detector: fourth order, 6 MHz wide.
constexpr double kDetectorHalfWidth = 3e6;
constexpr int kDetectorFilterOrder = 4;

double Sigmoid(double x) { return 1.0 / (1.0 + std::exp(-x)); }

double Quantise(double v, double step) { return std::round(v / step) * step; }

// The unit block keeps the level references in 0.001 dB, the gain steps in
// 0.02 dB, the attenuator response in 1/32 dB (low band, every 1 MHz from
// 1 MHz) and 1/16 dB (high band, every 10 MHz from 150 MHz, less the tilt),
// the preamplifier in 0.1 dB on the same grids, its roll-off in 1/32 dB
// every 50 kHz from 300 kHz, and the IF filter's shape as a power ratio in
// hundredths every 5 kHz: the unit's terms lie on those steps there.
constexpr double kLevelStep = 0.001, kGainStep = 0.02, kLowIfStep = 0.1, kPreampStep = 0.1;
constexpr double kLowResponseStep = 1.0 / 32, kHighResponseStep = 1.0 / 16, kRolloffStep = 1.0 / 32;

double LowGridPoint(double k) { return (k + 1.0) * 1e6; }
double LowGridPosition(double f) { return f / 1e6 - 1.0; }
double HighGridPoint(double k) { return 150e6 + k * 1e7; }
double HighGridPosition(double f) { return (f - 150e6) / 1e7; }
double RolloffGridPoint(double k) { return 300e3 + k * 50e3; }
double RolloffGridPosition(double f) { return (f - 300e3) / 50e3; }
constexpr double kIfGridStep = 5e3;  // the IF tables' offsets

// The 4.4 GHz family's IF tables hold a power ratio in hundredths.
double NearestStoredRatioDb(double db) {
    return -10.0 * std::log10(std::round(100.0 * std::pow(10.0, -db / 10.0)) / 100.0);
}

}  // namespace

UnitModel::UnitModel(uint32_t serial, int deviceType) : serial_(serial), type_(deviceType), crossover_(0.0) {
    crossover_ = ComputeCrossover();
    if (UnitFamily() == Family::Velm) BendVelmTerms();
}

double UnitModel::Vary(int key) const {
    // splitmix64 of serial and key, mapped to [-1, 1].
    uint64_t z = (static_cast<uint64_t>(serial_) << 20) + static_cast<uint64_t>(key) * 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return (z >> 11) * (2.0 / 9007199254740992.0) - 1.0;
}

double UnitModel::Ripple(double f, int key, double period, double amplitude) const {
    return amplitude * std::sin(kTwoPi * f / period + 3.14159265358979 * Vary(key));
}

// ---- IF filter --------------------------------------------------------------

double UnitModel::NominalRolloffDb(double offsetHz) {
    const double z = std::fabs(offsetHz * 0.001);
    const int j = std::clamp(static_cast<int>(std::floor(z)), 0, 124);
    return (z - j) * kRolloff[j + 1] + (j + 1 - z) * kRolloff[j];
}

double UnitModel::RolloffDb(double b) const { return NominalRolloffDb(b) - (type_ == 2 ? 0.6 : 0.0); }

double UnitModel::IfShapeSmooth(bool highIf, double b) const {
    // The unit's insertion loss (within a quarter dB), and a slight tilt and
    // bow across the passband: a few hundredths of a dB, not a ripple of its
    // own, which a wide bin would carry across its width.
    const int key = highIf ? 80 : 82;
    const double u = b / 125e3;
    return 0.25 * std::sin(0.5 * kTwoPi * Vary(key)) + 0.06 * Vary(key + 1) * u + 0.08 * Vary(key + 2) * u * u;
}

double UnitModel::IfShapeDb(bool highIf, double b) const {
    auto shape = [&](double x) {
        const double smooth = IfShapeSmooth(highIf, x);
        return UnitFamily() == Family::Velm ? smooth + ifShapeBend_[highIf ? 1 : 0].At(x / kIfGridStep) : smooth;
    };
    // Beyond 125 kHz the shape goes on straight, as it leaves the last 5 kHz.
    if (std::fabs(b) <= 125e3) return shape(b);
    const double edge = b > 0 ? 125e3 : -125e3;
    const double inner = b > 0 ? 120e3 : -120e3;
    return shape(edge) + (shape(edge) - shape(inner)) * (std::fabs(b) - 125e3) / 5e3;
}

double UnitModel::IfFilterDb(bool highIf, double b) const {
    double h = RolloffDb(b) + IfShapeDb(highIf, b);
    if (std::fabs(b) > kSkirtStart) h -= 3.0 * (std::fabs(b) - kSkirtStart) / 1e3;
    return h;
}

// ---- 4.4 GHz family ---------------------------------------------------------

void UnitModel::BendVelmTerms() {
    auto steps = [](double step) { return [step](double v) { return Quantise(v, step); }; };
    for (int att = 0; att < 4; ++att) {
        lowResponseBend_[att] = StepBend(-1, 150, [&](int k) { return VelmResponseShape(LowGridPoint(k), 0, att); },
                                         steps(kLowResponseStep));
        highResponseBend_[att] = StepBend(-1, 426, [&](int k) { return VelmResponseShape(HighGridPoint(k), 1, att); },
                                          steps(kHighResponseStep));
    }
    lowPreampBend_ = StepBend(-1, 150, [&](int k) { return VelmPreampShape(LowGridPoint(k), 0); }, steps(kPreampStep));
    highPreampBend_ = StepBend(-1, 426, [&](int k) { return VelmPreampShape(HighGridPoint(k), 1); }, steps(kPreampStep));
    rolloffBend_ = StepBend(0, 14, [&](int k) { return VelmRolloffShape(RolloffGridPoint(k)); }, steps(kRolloffStep));
    for (int highIf = 0; highIf < 2; ++highIf)
        ifShapeBend_[highIf] = StepBend(-26, 26, [&](int k) { return IfShapeSmooth(highIf != 0, k * kIfGridStep); },
                                        NearestStoredRatioDb);
}

double UnitModel::VelmLevelBase(int band) const {
    double base = 3.0 + 0.4 * Vary(1);
    if (band == 0) base -= 1.0 + 0.3 * Vary(2);
    // Type 2 keeps its level reference on the low IF path, 11.4 dB more sensitive.
    if (type_ == 2) base -= 11.4;
    return Quantise(base, kLevelStep);
}

double UnitModel::VelmGainStep(int index) const {
    if (type_ == 1) return index == 0 ? 15.83 : 12.0;
    return Quantise(index == 0 ? 15.8 + 0.3 * Vary(4) : 12.1 + 0.3 * Vary(5), kGainStep);
}

double UnitModel::VelmTilt(int type) { return type == 1 ? 2.5e-9 : 4e-9; }

double UnitModel::VelmResponseShape(double f, int band, int att) const {
    if (band == 0)
        return Ripple(f, 6, 47e6, 0.5) + Ripple(f, 7, 13.3e6, 0.25) + 0.1 * att * Vary(10 + att) +
               0.05 * att * f / 150e6;
    return Ripple(f, 8, 730e6, 1.2) + Ripple(f, 9, 190e6, 0.4) + att * (0.15 * Vary(20 + att) + 0.12 * f / 4.4e9);
}

double UnitModel::VelmResponse(double f, int band, int att) const {
    // Only the four attenuator steps that the unit block keeps lie on its steps.
    const bool stored = att >= 0 && att < 4;
    if (band == 0) return VelmResponseShape(f, 0, att) + (stored ? lowResponseBend_[att].At(LowGridPosition(f)) : 0.0);
    return VelmTilt(type_) * f + VelmResponseShape(f, 1, att) +
           (stored ? highResponseBend_[att].At(HighGridPosition(f)) : 0.0);
}

double UnitModel::VelmRolloffAt300k() const { return Quantise(1.2 + 0.2 * Vary(30), kRolloffStep); }

double UnitModel::VelmRolloffShape(double f) const {
    return VelmRolloffAt300k() * std::pow(std::clamp((1e6 - f) / 7e5, 0.0, 1.0), 1.5);
}

double UnitModel::VelmPreampRolloff(double f) const {
    if (f <= 300e3) return VelmRolloffAt300k() + std::pow((300e3 - f) / 85e3, 2.0);
    if (f >= 1e6) return 0.0;
    return VelmRolloffShape(f) + rolloffBend_.At(RolloffGridPosition(f));
}

double UnitModel::VelmPreampShape(double f, int band) const {
    if (band == 0) return 18.0 + Ripple(f, 31, 60e6, 0.5) + 0.5 * f / 150e6;
    return 18.5 - 1.6 * f / 4.4e9 + Ripple(f, 32, 520e6, 0.7);
}

double UnitModel::VelmPreampGain(double f, int band) const {
    if (band != 0) return VelmPreampShape(f, 1) + highPreampBend_.At(HighGridPosition(f));
    if (f < 1e6) return VelmPreampGain(1e6, 0) - VelmPreampRolloff(f);
    return VelmPreampShape(f, 0) + lowPreampBend_.At(LowGridPosition(f));
}

double UnitModel::VelmRecordTemperature(int record) { return 5.0 * record; }

double UnitModel::VelmAttenDrift(double f, int band, int att, double t) const {
    const double slope = -0.018 - 0.004 * f / 4.4e9 + 0.002 * att * Vary(40 + att);
    // A fixed offset per point: the tables carry it, and it cancels against the reference record.
    return slope * (t - VelmRecordTemperature(kVelmReferenceRecord)) + 0.05 * std::sin(f / 3e8 + band + att);
}

double UnitModel::VelmPreampDrift(double f, int, double t) const {
    return (-0.006 + 0.002 * Vary(50) - 0.001 * f / 4.4e9) * (t - VelmRecordTemperature(kVelmReferenceRecord));
}

double UnitModel::VelmHighIfDelta(double f, int, double t) const {
    return -11.4 + 0.3 * Vary(60) + Ripple(f, 62, 400e6, 0.2) +
           (0.01 + 0.003 * Vary(61)) * (t - VelmRecordTemperature(kVelmReferenceRecord));
}

double UnitModel::VelmLowIfOffset(int band) const { return Quantise(10.5 + 0.3 * Vary(70 + band), kLowIfStep); }

// ---- 12.4 GHz family --------------------------------------------------------

double UnitModel::OrskRecordTemperature(int record) { return kOrskRecordTemperatures[record]; }

double UnitModel::OrskBandResponse(double f, int band) const {
    switch (band) {
        case 0: {
            const double lowEnd = f > 0.0 ? -10.0 * std::log10(1.0 + std::pow(60e3 / f, 2.0)) : -60.0;
            return -11.0 + lowEnd + Ripple(f, 100, 37e6, 0.4);
        }
        case 1:
            return -7.0 - 1.8 * f / 4e9 + Ripple(f, 101, 610e6, 0.8) + Ripple(f, 102, 150e6, 0.25);
        case 2:
            return -9.0 - (f - 4e9) / 2.5e9 + Ripple(f, 103, 430e6, 0.7);
        case 3:
            return -10.0 + Ripple(f, 104, 380e6, 0.6) - 6.0 * Sigmoid((f - 8.43e9) / 40e6);
        case 4:
            return -10.5 + Ripple(f, 105, 500e6, 0.6) - 6.0 * Sigmoid(-(f - 8.46e9) / 40e6);
        default:
            return -12.0 - 2.0 * (f - 9.75e9) / 3.25e9 + Ripple(f, 106, 460e6, 0.7);
    }
}

double UnitModel::OrskValue(double f, int band, bool highIf, int att, double t) const {
    double v = OrskBandResponse(f, band);
    if (att > 0) v += -10.0 * att + 0.25 * Vary(110 + att) + 0.1 * att * std::sin(kTwoPi * f / 2.2e9 + Vary(115));
    if (!highIf) v += 9.0 + 0.3 * Vary(120) + Ripple(f, 121, 1.7e9, 0.2);
    return v + (-0.012 - 0.004 * f / 13e9) * (t - OrskRecordTemperature(kOrskReferenceRecord));
}

double UnitModel::OrskGainStep(double t) const {
    return 13.8 + 0.3 * Vary(130) - 0.008 * (t - OrskRecordTemperature(kOrskReferenceRecord));
}

double UnitModel::ComputeCrossover() const {
    if (UnitFamily() != Family::Orsk) return 0.0;
    // Where band 4's path overtakes band 3's on the grid that the tables share.
    const double t = OrskRecordTemperature(kOrskReferenceRecord);
    int i = 0;
    for (; i < 26; ++i) {
        const float upper = static_cast<float>(OrskValue(8249999872.0 + i * 1e7, 4, false, 1, t));
        const float lower = static_cast<float>(OrskValue(8.25e9 + i * 1e7, 3, false, 1, t));
        if (upper > lower) break;
    }
    const double frequency = i * 1e7 + 8.245e9;
    return std::floor(frequency / 1.28e7 + 0.5) * 64 * kHopStep;
}

// ---- the whole path ---------------------------------------------------------

double UnitModel::BandFilterDb(const FrontEnd& fe, double rf) const {
    double lowEdge = 0.0, highEdge = 1e12;
    if (fe.band == 0) {
        highEdge = 160e6;
    } else if (UnitFamily() == Family::Orsk) {
        if (fe.band == 1) {
            lowEdge = 120e6;
            highEdge = 4.1e9;
        } else if (fe.band <= 3) {
            lowEdge = 3.9e9;
            highEdge = 8.7e9;
        } else {
            lowEdge = 8.2e9;
            highEdge = 13.2e9;
        }
    }
    return rf >= lowEdge && rf <= highEdge ? 0.0 : kBandRejection;
}

double UnitModel::PathGainDb(const FrontEnd& fe, double rf, double b, double t) const {
    double g;
    if (UnitFamily() == Family::Velm) {
        const int band = fe.band == 0 ? 0 : 1;
        const double tRef = VelmRecordTemperature(kVelmReferenceRecord);
        g = -VelmLevelBase(band) - VelmResponse(rf, band, fe.atten) - 5.0 * fe.atten;
        if (fe.gain == 0) g -= VelmGainStep(0);
        if (fe.gain == 2) g += VelmGainStep(2);
        if (type_ == 2) {
            g += VelmAttenDrift(rf, band, fe.atten, t) - VelmAttenDrift(rf, band, fe.atten, tRef);
            if (fe.highIf) g += VelmHighIfDelta(rf, band, t);
            if (fe.preamp) g += VelmPreampGain(rf, band) + VelmPreampDrift(rf, band, t);
        } else if (!fe.highIf) {
            g += VelmLowIfOffset(band);
        }
    } else {
        g = OrskValue(rf, fe.band, fe.highIf, fe.atten, t);
        if (fe.gain >= 1) g += OrskGainStep(t);
        if (fe.gain == 2) g += 12.0;
    }
    return g + IfFilterDb(fe.highIf, b) + BandFilterDb(fe, rf);
}

double UnitModel::NoiseGainDb(const FrontEnd& fe, double t) const {
    // The RF that lands at 0 Hz, on the side of the LO that the engines use.
    const double f1 = std::fabs(fe.lo - fe.ifCenter);
    double rf = f1;
    if (fe.firstLo > 0.0) rf = fe.band <= 3 ? fe.firstLo - f1 : fe.firstLo + f1;
    return PathGainDb(fe, rf, 0.0, t) - BandFilterDb(fe, rf) - IfFilterDb(fe.highIf, 0.0);
}

// ---- detector -----------------------------------------------------------------

double UnitModel::DetectorIf() const {
    if (type_ == 4) return 63e6;
    if (type_ == 3) return 36e6;
    return kNominalHighIf;
}

double UnitModel::DetectorBandDb(double offset) {
    return -10.0 * std::log10(1.0 + std::pow(offset / kDetectorHalfWidth, 2.0 * kDetectorFilterOrder));
}

double UnitModel::DetectorNoiseBandwidth() {
    // The integral of the power response 1 / (1 + x^2n) over the whole axis, x in half widths.
    const double x = 3.14159265358979 / (2.0 * kDetectorFilterOrder);
    return 2.0 * kDetectorHalfWidth * x / std::sin(x);
}

double UnitModel::DetectorShape(double f) const {
    double shape = -2.0 + Ripple(f, 140, 1.3e9, 1.0) - 0.4 * f / 12e9;
    // Fine structure near the band 3 to 4 crossover, which the fine table resolves.
    if (f > 8.3e9 && f < 8.59e9) {
        const double window = std::pow(std::sin(3.14159265358979 * (f - 8.3e9) / 0.29e9), 2.0);
        shape += 0.3 * window * std::sin(kTwoPi * (f - 8.3e9) / 40e6);
    }
    return shape;
}

double UnitModel::DetectorGainDb(double f, int att, bool sensitiveRange, double t) const {
    const int band = OrskBandOf(f, crossover_);
    const double base = DetectorShape(f) - 0.01 * (t - OrskRecordTemperature(kOrskReferenceRecord));
    if (!sensitiveRange) return base + OrskValue(f, band, true, att, t) - OrskValue(f, band, true, 1, t);
    // The sensitive range is trimmed against the unit's own attenuator step 3,
    // where the factory measures its curve: with steps of 10 dB it stands
    // kDetectorRangeGap above the other range at any one step.
    return base + kDetectorStep3Gain + OrskValue(f, band, true, att, t) - OrskValue(f, band, true, 3, t);
}

double UnitModel::DetectorPowerOfCode(double code, double t) {
    // Undo the limiting: the power whose limited level is the code's.
    const double level = DetectorLevelOfCode(code, t);
    const double rest = std::pow(10.0, -level / 10.0) - std::pow(10.0, -kDetectorLimit / 10.0);
    return -10.0 * std::log10(std::max(rest, 1e-12));
}

int UnitModel::DetectorCode(double power, double t) {
    const double withFloor = 10.0 * std::log10(std::pow(10.0, power / 10.0) + std::pow(10.0, kDetectorFloor / 10.0));
    // The log amplifier limits softly towards kDetectorLimit.
    const double level =
        -10.0 * std::log10(std::pow(10.0, -withFloor / 10.0) + std::pow(10.0, -kDetectorLimit / 10.0));
    double c = (level - kDetectorCodeZero) * kDetectorCodesPerDb;
    for (int i = 0; i < 6; ++i) {
        const double slope = 1.0 / kDetectorCodesPerDb +
                             kDetectorBow * 3.14159265358979 / kDetectorBowPeriod *
                                 std::cos(3.14159265358979 * c / kDetectorBowPeriod);
        c -= (DetectorLevelOfCode(c, t) - level) / slope;
    }
    return std::clamp(static_cast<int>(std::lround(c)), 0, kDetectorMaxCode);
}

double UnitModel::DetectorLevelOfCode(double code, double t) {
    return kDetectorCodeZero + code / kDetectorCodesPerDb +
           kDetectorBow * std::sin(3.14159265358979 * code / kDetectorBowPeriod) -
           0.015 * (t - OrskRecordTemperature(kOrskReferenceRecord));
}

FrontEnd ModelFrontEnd(const UnitModel& model, double frequency, int band, bool highIf) {
    FrontEnd fe;
    fe.highIf = highIf;
    fe.ifCenter = SampledIf(highIf, fe.sampleRate);
    if (model.UnitFamily() == Family::Velm) {
        fe.band = band >= 0 ? band : (frequency < 150e6 ? 0 : 1);
        return fe;
    }
    fe.band = band >= 0 ? band : OrskBandOf(frequency, model.Crossover());
    if (fe.band >= 2) fe.firstLo = kFirstLo[(fe.band == 2 || fe.band == 4) ? 0 : 3];
    return fe;
}

}  // namespace qorsim
