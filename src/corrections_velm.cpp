#include "corrections_velm.h"

#include <algorithm>

#include "cal_bytes.h"

namespace qor {
namespace {

constexpr int kRecords = 16;
constexpr int kLowPoints = 150;   // low band: unit block (i+1) MHz, table block i MHz
constexpr int kHighPoints = 426;  // high band: 150 MHz + i x 10 MHz
constexpr int kAttenStates = 4;
constexpr int kReferenceRecord = 6;
constexpr double kBandSplit = 150e6;

// Unit block fields.
constexpr int kPreampRolloff = 112;  // u8[15], 1/32 dB, 300 kHz to 1 MHz by 50 kHz
constexpr int kLowIfOffsetLowBand = 129;
constexpr int kLowIfOffsetHighBand = 130;
constexpr int kAttenLow = 132;   // u8[4][150], (b-128)/32 dB
constexpr int kAttenHigh = 732;  // u8[4][426], (b-128)/16 dB
constexpr int kIfResponseHigh = 2436;
constexpr int kIfResponseLow = 2488;
constexpr int kGain0Word = 2540;
constexpr int kGain2Word = 2542;
constexpr int kLevelWordHigh = 2544;
constexpr int kLevelWordLow = 2546;
constexpr int kTimebaseWord = 2548;
constexpr int kPreampLow = 2552;   // u8[150], 0.1 dB
constexpr int kPreampHigh = 2702;  // u8[426], 0.1 dB

// Table block: 16 records of f64.
constexpr int kRecordBytes = 28648;
constexpr int kAttenDeltaOffset = 832;
constexpr int kPreampDeltaLowOffset = 19264;
constexpr int kPreampDeltaHighOffset = 20464;
constexpr int kHighIfDeltaLowOffset = 23872;
constexpr int kHighIfDeltaHighOffset = 25072;
constexpr int kRecordTemperatureOffset = 28480 + 2 * 8;

void ReadF64Array(const uint8_t* src, int count, double* dst) {
    for (int i = 0; i < count; ++i) dst[i] = ReadLeF64(src + 8 * i);
}

// Bilinear read of value(record, point) between records a and a+1 and grid
// points p.i and p.i+1.
template <typename Value>
double Bilinear(Value value, int a, double u, GridPos p) {
    const double lower = (1.0 - u) * value(a, p.i) + u * value(a + 1, p.i);
    const double upper = (1.0 - u) * value(a, p.i + 1) + u * value(a + 1, p.i + 1);
    return (1.0 - p.w) * lower + p.w * upper;
}

constexpr AttenGainRow kAttenGainRows[] = {{-22.0, 0, 2}, {-17.0, 1, 2}, {-12.0, 2, 2},
                                           {-5.0, 1, 1},  {0.0, 2, 1},   {5.0, 3, 1},
                                           {11.0, 2, 0},  {HUGE_VAL, 3, 0}};

}  // namespace

struct CorrectionsVelm::Tables {
    double attenDeltaLow[kRecords][kLowPoints][kAttenStates];
    double attenDeltaHigh[kRecords][kHighPoints][kAttenStates];
    double preampDeltaLow[kRecords][kLowPoints];
    double preampDeltaHigh[kRecords][kHighPoints];
    double highIfDeltaLow[kRecords][kLowPoints];
    double highIfDeltaHigh[kRecords][kHighPoints];
    double recordTemperature[kRecords];
};

CorrectionsVelm::CorrectionsVelm(DeviceFamily family, const uint8_t* table, const uint8_t* unit)
    : DeviceCorr(family, table, unit), tables_(std::make_unique<Tables>()) {}

CorrectionsVelm::~CorrectionsVelm() = default;

int64_t CorrectionsVelm::Load(AnalyzerLink*) {
    unit_ = unitBlock;
    if (!family.Is(DeviceTypeVelm)) {
        Tables& t = *tables_;
        for (int r = 0; r < kRecords; ++r) {
            const uint8_t* record = tableBlock + r * kRecordBytes;
            for (int a = 0; a < kAttenStates; ++a) {
                const uint8_t* group = record + kAttenDeltaOffset + a * (kLowPoints + kHighPoints) * 8;
                for (int i = 0; i < kLowPoints; ++i) t.attenDeltaLow[r][i][a] = ReadLeF64(group + 8 * i);
                for (int i = 0; i < kHighPoints; ++i)
                    t.attenDeltaHigh[r][i][a] = ReadLeF64(group + 8 * (kLowPoints + i));
            }
            ReadF64Array(record + kPreampDeltaLowOffset, kLowPoints, t.preampDeltaLow[r]);
            ReadF64Array(record + kPreampDeltaHighOffset, kHighPoints, t.preampDeltaHigh[r]);
            ReadF64Array(record + kHighIfDeltaLowOffset, kLowPoints, t.highIfDeltaLow[r]);
            ReadF64Array(record + kHighIfDeltaHighOffset, kHighPoints, t.highIfDeltaHigh[r]);
            t.recordTemperature[r] = ReadLeF64(record + kRecordTemperatureOffset);
        }
    }
    timebaseFactor = TimebaseFactorOf(ReadLeU16(unit_ + kTimebaseWord));
    return 0;
}

int CorrectionsVelm::BandOf(double f) const { return f < kBandSplit ? 0 : 1; }

void CorrectionsVelm::SelectAttenGain(double minCorrection, double referenceLevel, int* atten, int* gain) const {
    PickAttenGain(kAttenGainRows, referenceLevel + 3.0 - minCorrection, atten, gain);
}

double CorrectionsVelm::DetectorPowerRatio(double, int, int, uint16_t, uint8_t) const { return 0.0; }

double CorrectionsVelm::GetCorrection(double f, int att, int gain, int highIf, double ifOffset, int band) {
    if (family.Is(DeviceTypeVelm)) preampOn = false;  // this model has no preamplifier
    const bool lowBand = band < 0 ? f < kBandSplit : band == 0;
    const uint8_t* ifTable = unit_ + (highIf != 0 ? kIfResponseHigh : kIfResponseLow);
    const double ifTerm = IfTerm(ifTable, 0.01, ifOffset, family.Is(DeviceTypeVelmB) ? 0.6 : 0.0);
    return LevelTerm(lowBand, gain) - TemperatureTerm(f, lowBand, att, highIf) + ResponseTerm(f, lowBand, att) +
           att * 5.0 + ifTerm - 3.0;
}

double CorrectionsVelm::LevelTerm(bool lowBand, int gain) const {
    double g0 = 15.83;
    double g2 = 12.0;
    if (!family.Is(DeviceTypeVelm)) {
        g0 = ReadLeU16(unit_ + kGain0Word) * 0.02 + 16.0 - 2.56;
        g2 = ReadLeU16(unit_ + kGain2Word) * 0.02 + 12.0 - 2.56;
    }
    const uint16_t word = ReadLeU16(unit_ + (lowBand ? kLevelWordLow : kLevelWordHigh));
    const double base = (word - 32768.0) * 0.001 - 10.5;
    if (gain == 0) return base + g0;
    if (gain == 2) return base - g2;
    return base;
}

double CorrectionsVelm::ResponseTerm(double f, bool lowBand, int att) const {
    const int a = std::clamp(att, 0, kAttenStates - 1);
    if (!lowBand) {
        const GridPos p = Locate((f - kBandSplit) / 1e7, kHighPoints - 2);
        const double slope = family.Is(DeviceTypeVelm) ? 2.5e-9 : 4e-9;
        double term = (Lerp(unit_ + kAttenHigh + a * kHighPoints, p) - 128.0) * 0.0625 + slope * f;
        if (preampOn) term -= Lerp(unit_ + kPreampHigh, p) * 0.1;
        return term;
    }
    const GridPos p = Locate((f - 1e6) / 1e6, kLowPoints - 2);
    const double term = (Lerp(unit_ + kAttenLow + a * kLowPoints, p) - 128.0) * 0.03125;
    if (!preampOn) return term;
    // Below 1 MHz the preamplifier's gain rolls off towards DC.
    const uint8_t* rolloff = unit_ + kPreampRolloff;
    const double preampAt1MHz = unit_[kPreampLow] * 0.1;
    double preamp;
    if (f <= 300000.0) {
        const double below = (300000.0 - f) / 85000.0;
        preamp = preampAt1MHz - (rolloff[0] * 0.03125 + below * below);
    } else if (f < 1e6) {
        preamp = preampAt1MHz - Lerp(rolloff, Locate((f - 300000.0) / 50000.0, 13)) * 0.03125;
    } else {
        preamp = Lerp(unit_ + kPreampLow, p) * 0.1;
    }
    return term - preamp;
}

double CorrectionsVelm::TemperatureTerm(double f, bool lowBand, int att, int highIf) const {
    if (family.Is(DeviceTypeVelm)) {
        if (highIf != 0) return 0.0;
        return 0.1 * unit_[lowBand ? kLowIfOffsetLowBand : kLowIfOffsetHighBand];
    }
    const Tables& t = *tables_;
    const double temp = temperature;
    int k = 1;
    while (k < 12 && !(t.recordTemperature[k] > temp)) ++k;
    const int lower = k - 1;
    const double span = t.recordTemperature[lower + 1] - t.recordTemperature[lower];
    const double u = span != 0.0 ? (temp - t.recordTemperature[lower]) / span : 0.0;

    const int a = std::clamp(att, 0, kAttenStates - 1);
    const GridPos p = lowBand ? Locate(f / 1e6, kLowPoints - 2) : Locate((f - kBandSplit) / 1e7, kHighPoints - 2);
    auto atten = [&](int r, int i) { return lowBand ? t.attenDeltaLow[r][i][a] : t.attenDeltaHigh[r][i][a]; };
    auto highIfDelta = [&](int r, int i) { return lowBand ? t.highIfDeltaLow[r][i] : t.highIfDeltaHigh[r][i]; };
    const double cur = Bilinear(atten, lower, u, p);
    const double ref = (1.0 - p.w) * atten(kReferenceRecord, p.i) + p.w * atten(kReferenceRecord, p.i + 1);
    const double side = highIf == 1 ? Bilinear(highIfDelta, lower, u, p) : 0.0;
    double pre = 0.0;
    if (preampOn) {
        pre = lowBand ? t.preampDeltaLow[lower][p.i] - t.preampDeltaLow[kReferenceRecord][p.i]
                      : t.preampDeltaHigh[lower][p.i] - t.preampDeltaHigh[kReferenceRecord][p.i];
    }
    return pre + (cur - ref) + side;
}

}  // namespace qor
