#include "corrections_orsk.h"

#include <algorithm>

#include "analyzer_link.h"
#include "cal_bytes.h"

namespace qor {
namespace {

constexpr int kRecords = 12;
constexpr int kIfEntries = 52;
constexpr int kColumns = 5;
constexpr int kPathPoints = 1921;
constexpr int kRfPoints = 1286;
constexpr int kRfCorrected = 1280;
constexpr int kFinePoints = 100;
constexpr int kCurveAPoints = 21;
constexpr int kCurveBPoints = 16;
constexpr int kReferenceRecord = 6;
constexpr int kRepairRecord = 7;

// Table block: 12 records, then the tail.
constexpr int kRecordBytes = 47634;
constexpr int kPathOffset = 416;
constexpr int kRfOffset = 38836;
constexpr int kFineOffset = 46552;
constexpr int kCurveALevelOffset = 47392;
constexpr int kCurveBLevelOffset = 47476;
constexpr int kCurveACodeOffset = 47540;
constexpr int kCurveBCodeOffset = 47582;
constexpr int kGainStepOffset = 47614;
constexpr int kRecordTemperatureOffset = 47618;
constexpr int kOcxoDacWordOffset = 571608;
constexpr int kTimebaseWordOffset = 571610;

// A stretch of a response column: its first point in the column, point
// count, first frequency and step in Hz.
struct Segment {
    int first;
    int points;
    double start;
    double step;
};

constexpr Segment kLf0{0, 6, 100e3, 50e3};
constexpr Segment kLf1{6, 6, 400e3, 100e3};
constexpr Segment kLf2{12, 30, 1e6, 1e6};
constexpr Segment kLf3{42, 24, 35e6, 5e6};
// Bands 1 to 5; the starts of bands 4 and 5 are the stored single-precision values.
constexpr Segment kBandSegments[6] = {{},
                                      {66, 401, 150e6, 1e7},
                                      {467, 351, 4e9, 1e7},
                                      {818, 351, 5e9, 1e7},
                                      {1169, 376, 8249999872.0, 1e7},
                                      {1545, 376, 9249999872.0, 1e7}};

// Generic low-frequency response of the path, added to the unit's own 2 MHz
// point when the unit carries no data of its own below 2 MHz.
// Columns: E1, E2 for lf0 (high and low IF), E3, E4 for lf1.
constexpr double kLowFrequencyShape[6][4] = {{-1.96, -0.63, 0.25, 0.0}, {-0.8, -0.34, 0.44, 0.23},
                                             {-0.13, 0.0, 0.2, -0.1},   {0.1, 0.0, 0.0, 0.0},
                                             {0.19, 0.0, 0.0, 0.0},     {0.25, 0.0, 0.0, 0.0}};

constexpr AttenGainRow kAttenGainRows[] = {{-32.0, 0, 2}, {-20.0, 0, 1}, {-10.0, 1, 1}, {0.0, 2, 1},
                                           {10.0, 3, 1},  {16.0, 2, 0},  {HUGE_VAL, 3, 0}};

}  // namespace

struct CorrectionsOrsk::Tables {
    float ifResponseLow[kRecords][kIfEntries];
    float ifResponseHigh[kRecords][kIfEntries];
    float path[kRecords][kPathPoints][kColumns];
    uint16_t rfCode[kRecords][kRfPoints];
    float rfLevel[kRecords][kRfPoints];
    uint16_t fineCode[kRecords][kFinePoints];
    float fineLevel[kRecords][kFinePoints];
    float curveALevel[kRecords][kCurveAPoints];
    float curveBLevel[kRecords][kCurveBPoints];
    uint16_t curveACode[kRecords][kCurveAPoints];
    uint16_t curveBCode[kRecords][kCurveBPoints];
    float gainStep[kRecords];
    float recordTemperature[kRecords];
    uint16_t ocxoDacWord;
    uint16_t timebaseWord;
};

CorrectionsOrsk::CorrectionsOrsk(DeviceFamily family, const uint8_t* table, const uint8_t* unit)
    : DeviceCorr(family, table, unit), tables_(std::make_unique<Tables>()) {}

CorrectionsOrsk::~CorrectionsOrsk() = default;

int64_t CorrectionsOrsk::Load(AnalyzerLink* link) {
    SpreadTableBlock();
    Tables& t = *tables_;
    timebaseFactor = TimebaseFactorOf(t.timebaseWord);
    RepairLowFrequencies();
    if (link) link->SetOcxoDac(t.ocxoDacWord);
    // The detector tables hold levels relative to curve A of their record.
    for (int r = 0; r < kRecords; ++r) {
        for (int i = 0; i < kRfCorrected; ++i)
            t.rfLevel[r][i] = static_cast<float>(t.rfLevel[r][i] - DetectorCurve(false, t.rfCode[r][i], r));
        for (int i = 0; i < kFinePoints; ++i)
            t.fineLevel[r][i] = static_cast<float>(t.fineLevel[r][i] - DetectorCurve(false, t.fineCode[r][i], r));
    }
    FindCrossover();
    if (link) {
        link->SetZ2(crossoverWord);
        int raw = 0;
        if (link->ReadOcxoWarmup(&raw)) timebaseFactor = 1.0;  // oven not settled: its trim would mislead
    }
    return 0;
}

void CorrectionsOrsk::SpreadTableBlock() {
    Tables& t = *tables_;
    for (int r = 0; r < kRecords; ++r) {
        const uint8_t* record = tableBlock + r * kRecordBytes;
        for (int i = 0; i < kIfEntries; ++i) {
            t.ifResponseLow[r][i] = ReadLeF32(record + 8 * i);
            t.ifResponseHigh[r][i] = ReadLeF32(record + 8 * i + 4);
        }
        for (int c = 0; c < kColumns; ++c)
            for (int p = 0; p < kPathPoints; ++p)
                t.path[r][p][c] = ReadLeF32(record + kPathOffset + 4 * (c * kPathPoints + p));
        for (int i = 0; i < kRfPoints; ++i) {
            t.rfCode[r][i] = ReadLeU16(record + kRfOffset + 6 * i);
            t.rfLevel[r][i] = ReadLeF32(record + kRfOffset + 6 * i + 2);
        }
        for (int i = 0; i < kFinePoints; ++i) {
            t.fineCode[r][i] = ReadLeU16(record + kFineOffset + 6 * i);
            t.fineLevel[r][i] = ReadLeF32(record + kFineOffset + 6 * i + 2);
        }
        for (int i = 0; i < kCurveAPoints; ++i) {
            t.curveALevel[r][i] = ReadLeF32(record + kCurveALevelOffset + 4 * i);
            t.curveACode[r][i] = ReadLeU16(record + kCurveACodeOffset + 2 * i);
        }
        for (int i = 0; i < kCurveBPoints; ++i) {
            t.curveBLevel[r][i] = ReadLeF32(record + kCurveBLevelOffset + 4 * i);
            t.curveBCode[r][i] = ReadLeU16(record + kCurveBCodeOffset + 2 * i);
        }
        t.gainStep[r] = ReadLeF32(record + kGainStepOffset);
        t.recordTemperature[r] = ReadLeF32(record + kRecordTemperatureOffset);
    }
    t.ocxoDacWord = ReadLeU16(tableBlock + kOcxoDacWordOffset);
    t.timebaseWord = ReadLeU16(tableBlock + kTimebaseWordOffset);
}

void CorrectionsOrsk::RepairLowFrequencies() {
    Tables& t = *tables_;
    auto lf0 = [&](int r, int i) { return t.path[r][kLf0.first + i]; };
    auto lf1 = [&](int r, int i) { return t.path[r][kLf1.first + i]; };
    auto lf2 = [&](int r, int i) { return t.path[r][kLf2.first + i]; };
    // A unit measured below 2 MHz shows its own steep roll-off there.
    if (lf0(kRepairRecord, 0)[0] - lf2(kRepairRecord, 1)[0] < -0.5) return;
    for (int r = 0; r < kRecords; ++r) {
        const float* c = lf2(r, 1);
        for (int i = 0; i < 6; ++i) {
            const double* e = kLowFrequencyShape[i];
            for (int col = 0; col < kColumns; ++col) {
                const bool highIf = col < 2;
                lf0(r, i)[col] = static_cast<float>(c[col] + (highIf ? e[0] : e[1]));
                lf1(r, i)[col] = static_cast<float>(c[col] + (highIf ? e[2] : e[3]));
            }
        }
        std::copy(c, c + kColumns, lf2(r, 0));
    }
}

void CorrectionsOrsk::FindCrossover() {
    const Tables& t = *tables_;
    const Segment& band3 = kBandSegments[3];
    const Segment& band4 = kBandSegments[4];
    int i = 0;
    // Band 4 takes over where its low-IF response rises above band 3's.
    while (i < 26 && !(t.path[kReferenceRecord][band4.first + i][2] >
                       t.path[kReferenceRecord][band3.first + 325 + i][2]))
        ++i;
    crossoverFrequency = i * 1e7 + 8.245e9;
    crossoverWord = static_cast<uint32_t>(std::floor(crossoverFrequency / 1.28e7 + 0.5)) * 64;
}

int CorrectionsOrsk::BandOf(double f) const {
    if (f < 150e6) return 0;
    if (f < 4.0064e9) return 1;
    if (f < 6.5024e9) return 2;
    if (f < crossoverWord * 200000.0) return 3;
    if (f < 9.7536e9) return 4;
    return 5;
}

void CorrectionsOrsk::SelectAttenGain(double minCorrection, double referenceLevel, int* atten, int* gain) const {
    PickAttenGain(kAttenGainRows, referenceLevel + 3.0 - minCorrection, atten, gain);
}

CorrectionsOrsk::Bracket CorrectionsOrsk::BracketTemperature() const {
    const float* rt = tables_->recordTemperature;
    int k = 5;
    while (k < 10 && !(rt[k] > temperature)) ++k;
    const double span = static_cast<double>(rt[k]) - rt[k - 1];
    return {k, span != 0.0 ? (temperature - rt[k - 1]) / span : 0.0};
}

double CorrectionsOrsk::GetCorrection(double f, int att, int gain, int highIf, double ifOffset, int band) {
    f = std::min(f, 12.98e9);
    const float* ifTable = (highIf != 0 ? tables_->ifResponseHigh : tables_->ifResponseLow)[kReferenceRecord];
    return Response(f, att, gain, highIf, band) + IfTerm(ifTable, 1.0, ifOffset, 0.0) - 3.0;
}

double CorrectionsOrsk::Response(double f, int att, int gain, int highIf, int band) const {
    if (band < 0) band = BandOf(f);
    Bracket b = BracketTemperature();
    const double u = std::clamp(b.u, 0.0, 1.0);
    return (1.0 - u) * PathTerm(b.upper - 1, f, att, gain, highIf, band) +
           u * PathTerm(b.upper, f, att, gain, highIf, band);
}

double CorrectionsOrsk::PathTerm(int r, double f, int att, int gain, int highIf, int band) const {
    const Tables& t = *tables_;
    Segment seg;
    if (band == 0)
        seg = f < 375e3 ? kLf0 : f < 975e3 ? kLf1 : f < 32.5e6 ? kLf2 : kLf3;
    else
        seg = kBandSegments[band >= 1 && band <= 4 ? band : 5];
    const GridPos p = Locate((f - seg.start) / seg.step, seg.points - 2);

    // Columns: 0 high IF att 0, 1 high IF att 1, 2..4 low IF att 1..3.
    const int a = std::clamp(att, 0, 3);
    auto value = [&](int point) -> double {
        const float* c = t.path[r][seg.first + point];
        if (highIf != 0) return a == 0 ? c[0] : a == 1 ? c[1] : static_cast<double>(c[1]) - c[2] + c[a + 1];
        return a == 0 ? static_cast<double>(c[0]) - c[1] + c[2] : c[a + 1];
    };
    float gainOffset = 0.0f;
    if (gain == 2)
        gainOffset = static_cast<float>(t.gainStep[r] + 12.0);
    else if (gain != 0)
        gainOffset = t.gainStep[r];
    return -(1.0 - p.w) * value(p.i) - p.w * value(p.i + 1) - gainOffset;
}

double CorrectionsOrsk::DetectorPowerRatio(double f, int att, int detectorSetting, uint16_t code,
                                           uint8_t) const {
    const Bracket b = BracketTemperature();
    const bool curveB = detectorSetting >= 15;
    const double det = (1.0 - b.u) * DetectorCurve(curveB, code, b.upper - 1) + b.u * DetectorCurve(curveB, code, b.upper);
    const double ref = Response(f, curveB ? 3 : 1, 1, 1, -1);
    const double sig = Response(f, att, 1, 1, -1);
    const double rf = (1.0 - b.u) * RfLevel(f, b.upper - 1) + b.u * RfLevel(f, b.upper);
    return std::pow(10.0, (rf + sig + det - ref) * 0.1);
}

double CorrectionsOrsk::RfLevel(double f, int r) const {
    const Tables& t = *tables_;
    const double single = static_cast<float>(f);
    if (single > 8.3e9 && single < 8.59e9) {
        const int i = static_cast<int>(std::floor((single - 8.3e9) / 3e6 + 0.5));
        return static_cast<double>(t.fineLevel[kReferenceRecord][i]) - t.fineLevel[kReferenceRecord][1] +
               t.fineLevel[r][1];
    }
    return Lerp(t.rfLevel[r], Locate(std::max((single - 2e8) / 1e7, 0.0), kRfPoints - 2));
}

double CorrectionsOrsk::DetectorCurve(bool curveB, uint16_t code, int r) const {
    const Tables& t = *tables_;
    const int n = curveB ? kCurveBPoints : kCurveAPoints;
    const uint16_t* codes = curveB ? t.curveBCode[r] : t.curveACode[r];
    const float* levels = curveB ? t.curveBLevel[r] : t.curveALevel[r];
    int i = 0;
    while (i < n && !(codes[i] > code)) ++i;
    // Outside the curve, extrapolate from a wider pair of points.
    const int p0 = i == n ? n - 3 : i == 0 ? 0 : i - 1;
    const int p1 = i == n ? n - 1 : i == 0 ? 2 : i;
    const double ca = codes[p0];
    const double cb = codes[p1];
    const double w = cb != ca ? (code - ca) / (cb - ca) : 0.0;  // equal codes: the lower point's level
    return (1.0 - w) * levels[p0] + w * levels[p1];
}

}  // namespace qor
