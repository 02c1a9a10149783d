// The factory's measurement of a unit, written the way the unit stores it.
// Every stored number is the model's own term on the grid of its table, and
// the model keeps its terms on the steps in which the tables store them, so
// that the corrections decoded from the tables give back the model's gain at
// the grid points (and up to the interpolation between them).
#include "factory_calibration.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qorsim {

namespace {

constexpr size_t kVelmRecordSize = 28648;
constexpr int kVelmRecords = 16;
constexpr size_t kOrskRecordSize = 47634;
constexpr int kOrskRecords = 12;
constexpr int kIfEntries = 52;
constexpr double kDetectorCalLevel = -30.0; // dBm injected for the detector tables

// Little-endian writers; the bytes are placed one by one, so the layout
// doesn't depend on the host.
void PutU8(std::vector<uint8_t>& b, size_t at, double value) {
    b[at] = static_cast<uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}
void PutU16(std::vector<uint8_t>& b, size_t at, long value) {
    const auto v = static_cast<uint16_t>(std::clamp(value, 0L, 65535L));
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
void PutU32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}
void PutF32(std::vector<uint8_t>& b, size_t at, double value) {
    const float f = static_cast<float>(value);
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    PutU32(b, at, bits);
}
void PutF64(std::vector<uint8_t>& b, size_t at, double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, 8);
    for (int i = 0; i < 8; ++i) b[at + i] = static_cast<uint8_t>(bits >> (8 * i));
}

// Offset from the IF centre of IF table entry k.
double IfOffsetOf(int k) { return (25 - k) * 5000.0; }

double LowGrid(int i) { return (i + 1) * 1e6; }          // response grid of the low band
double HighGrid(int i) { return 150e6 + i * 1e7; }        // every high-band grid
double LowTemperatureGrid(int i) { return i * 1e6; }      // temperature tables, low band

// ---- 4.4 GHz family ---------------------------------------------------------

void WriteVelmUnitBlock(const UnitModel& m, std::vector<uint8_t>& u) {
    for (size_t i = 0; i < 112; ++i) u[i] = static_cast<uint8_t>(i * 7);
    for (int k = 0; k < 15; ++k) PutU8(u, 112 + k, m.VelmPreampRolloff(300e3 + 50e3 * k) * 32.0);
    PutU8(u, 129, m.VelmLowIfOffset(0) * 10.0);
    PutU8(u, 130, m.VelmLowIfOffset(1) * 10.0);
    for (int att = 0; att < 4; ++att) {
        for (int i = 0; i < 150; ++i) PutU8(u, 132 + att * 150 + i, m.VelmResponse(LowGrid(i), 0, att) * 32.0 + 128.0);
        for (int i = 0; i < 426; ++i) {
            const double f = HighGrid(i);
            PutU8(u, 732 + att * 426 + i, (m.VelmResponse(f, 1, att) - UnitModel::VelmTilt(m.DeviceType()) * f) * 16.0 + 128.0);
        }
    }
    // The IF tables hold what the nominal roll-off leaves: the unit's own shape, as a power ratio.
    for (int k = 0; k < kIfEntries; ++k) {
        PutU8(u, 2436 + k, 100.0 * std::pow(10.0, -m.IfShapeDb(true, IfOffsetOf(k)) / 10.0));
        PutU8(u, 2488 + k, 100.0 * std::pow(10.0, -m.IfShapeDb(false, IfOffsetOf(k)) / 10.0));
    }
    PutU16(u, 2540, std::lround((m.VelmGainStep(0) - 16.0 + 2.56) / 0.02));
    PutU16(u, 2542, std::lround((m.VelmGainStep(2) - 12.0 + 2.56) / 0.02));
    PutU16(u, 2544, std::lround((m.VelmLevelBase(1) + 10.5) / 0.001) + 32768);
    PutU16(u, 2546, std::lround((m.VelmLevelBase(0) + 10.5) / 0.001) + 32768);
    PutU16(u, 2548, 32768); // the reference is exact: timebase factor 1
    if (m.DeviceType() == 2) {
        for (int i = 0; i < 150; ++i) PutU8(u, 2552 + i, m.VelmPreampGain(LowGrid(i), 0) * 10.0);
        for (int i = 0; i < 426; ++i) PutU8(u, 2702 + i, m.VelmPreampGain(HighGrid(i), 1) * 10.0);
    }
}

void WriteVelmTable(const UnitModel& m, std::vector<uint8_t>& t) {
    if (m.DeviceType() != 2) return; // type 1 has no table: its block stays zero
    for (int r = 0; r < kVelmRecords; ++r) {
        const size_t base = r * kVelmRecordSize;
        const double temp = UnitModel::VelmRecordTemperature(r);
        for (int k = 0; k < kIfEntries; ++k) {
            PutF64(t, base + 16 * k, std::pow(10.0, -m.IfShapeDb(false, IfOffsetOf(k)) / 10.0));
            PutF64(t, base + 16 * k + 8, std::pow(10.0, -m.IfShapeDb(true, IfOffsetOf(k)) / 10.0));
        }
        for (int att = 0; att < 4; ++att) {
            const size_t group = base + 832 + att * 576 * 8;
            for (int i = 0; i < 150; ++i) PutF64(t, group + 8 * i, m.VelmAttenDrift(LowTemperatureGrid(i), 0, att, temp));
            for (int i = 0; i < 426; ++i) PutF64(t, group + 1200 + 8 * i, m.VelmAttenDrift(HighGrid(i), 1, att, temp));
        }
        for (int i = 0; i < 150; ++i) {
            PutF64(t, base + 19264 + 8 * i, m.VelmPreampDrift(LowTemperatureGrid(i), 0, temp));
            PutF64(t, base + 23872 + 8 * i, m.VelmHighIfDelta(LowTemperatureGrid(i), 0, temp));
        }
        for (int i = 0; i < 426; ++i) {
            PutF64(t, base + 20464 + 8 * i, m.VelmPreampDrift(HighGrid(i), 1, temp));
            PutF64(t, base + 25072 + 8 * i, m.VelmHighIfDelta(HighGrid(i), 1, temp));
        }
        PutF64(t, base + 28480 + 16, temp);
    }
}

// ---- 12.4 GHz family --------------------------------------------------------

struct Segment {
    int points;
    double first; // as the unit stores it: single precision
    double step;
    int band;
};

// The nine segments of a response column, in file order.
constexpr Segment kSegments[] = {
    {6, 100e3, 50e3, 0},       {6, 400e3, 100e3, 0},      {30, 1e6, 1e6, 0},
    {24, 35e6, 5e6, 0},        {401, 150e6, 1e7, 1},      {351, 4e9, 1e7, 2},
    {351, 5e9, 1e7, 3},        {376, 8249999872.0, 1e7, 4}, {376, 9249999872.0, 1e7, 5}};
constexpr int kColumnValues = 1921;

struct Column {
    bool highIf;
    int att;
};
constexpr Column kColumns[5] = {{true, 0}, {true, 1}, {false, 1}, {false, 2}, {false, 3}};

void WriteOrskRecord(const UnitModel& m, int r, std::vector<uint8_t>& t) {
    const size_t base = r * kOrskRecordSize;
    const double temp = UnitModel::OrskRecordTemperature(r);
    for (int k = 0; k < kIfEntries; ++k) {
        PutF32(t, base + 8 * k, std::pow(10.0, -m.IfShapeDb(false, IfOffsetOf(k)) / 10.0));
        PutF32(t, base + 8 * k + 4, std::pow(10.0, -m.IfShapeDb(true, IfOffsetOf(k)) / 10.0));
    }
    for (int c = 0; c < 5; ++c) {
        size_t at = base + 416 + static_cast<size_t>(c) * kColumnValues * 4;
        for (const auto& s : kSegments)
            for (int i = 0; i < s.points; ++i, at += 4)
                PutF32(t, at, m.OrskValue(s.first + i * s.step, s.band, kColumns[c].highIf, kColumns[c].att, temp));
    }
    // Detector tables: the code that a known level gives through the low IF
    // attenuator setting with attenuator step 1.
    auto detectorEntry = [&](size_t at, double f) {
        const int code = m.DetectorCode(kDetectorCalLevel + m.DetectorGainDb(f, 1, false, temp), temp);
        PutU16(t, at, code);
        PutF32(t, at + 2, kDetectorCalLevel);
    };
    for (int i = 0; i < 1286; ++i) detectorEntry(base + 38836 + 6 * i, 200e6 + i * 1e7);
    for (int i = 0; i < 100; ++i) detectorEntry(base + 46552 + 6 * i, 8.3e9 + i * 3e6);
    // Detector curves, code to power over the detector's useful codes: curve A
    // at the detector itself, curve B the input its sensitive range needs at
    // step 3 for the code, relative to the step-1 path of the other range.
    for (int i = 0; i < 21; ++i) {
        const int code = i * UnitModel::kDetectorCurveTop / 20;
        PutF32(t, base + 47392 + 4 * i, UnitModel::DetectorPowerOfCode(code, temp));
        PutU16(t, base + 47540 + 2 * i, code);
    }
    for (int i = 0; i < 16; ++i) {
        const int code = i * UnitModel::kDetectorCurveTop / 15;
        PutF32(t, base + 47476 + 4 * i, UnitModel::DetectorPowerOfCode(code, temp) - UnitModel::kDetectorStep3Gain);
        PutU16(t, base + 47582 + 2 * i, code);
    }
    PutF32(t, base + 47614, m.OrskGainStep(temp));
    PutF32(t, base + 47618, temp);
}

void WriteOrskTable(const UnitModel& m, std::vector<uint8_t>& t) {
    for (int r = 0; r < kOrskRecords; ++r) WriteOrskRecord(m, r, t);
    PutU16(t, 571608, 0x8123);  // oven DAC word
    PutU16(t, 571610, 32768);   // timebase factor 1
}

}  // namespace

CalibrationImage BuildFactoryCalibration(const UnitModel& model) {
    CalibrationImage image;
    image.unitBlock.assign(kUnitBlockSize, 0);
    if (model.UnitFamily() == Family::Orsk) {
        image.tableBlock.assign(kOrskTableSize, 0);
        WriteOrskTable(model, image.tableBlock);
    } else {
        image.tableBlock.assign(kVelmTableSize, 0);
        WriteVelmUnitBlock(model, image.unitBlock);
        WriteVelmTable(model, image.tableBlock);
    }
    return image;
}

std::vector<uint8_t> BulkPayload(const CalibrationImage& image, bool orskLayout) {
    std::vector<uint8_t> data;
    if (orskLayout) {
        data.assign(kOrskBulkPayload, 0);
        std::copy_n(image.tableBlock.begin(), std::min(image.tableBlock.size(), data.size()), data.begin());
    } else {
        // Unit block, then the table block in a field of 0x70000 bytes, then a trailer.
        data.assign(kVelmBulkPayload, 0);
        std::copy_n(image.unitBlock.begin(), std::min<size_t>(image.unitBlock.size(), kUnitBlockSize), data.begin());
        std::copy_n(image.tableBlock.begin(), std::min<size_t>(image.tableBlock.size(), 0x70000),
                    data.begin() + kUnitBlockSize);
    }
    return data;
}

}  // namespace qorsim
