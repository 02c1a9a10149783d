// The amplitude model of one analyzer unit: the dB value that turns a raw
// level into dBm for a frequency, level setting, IF and temperature.
//
// Engines write `temperature` and `preampOn` on their own thread right before
// they ask for corrections; one engine runs per device, so there is no lock.
#ifndef QOR_CORRECTIONS_H
#define QOR_CORRECTIONS_H

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "device_family.h"

namespace qor {

class AnalyzerLink;

class DeviceCorr {
public:
    DeviceCorr(DeviceFamily family, const uint8_t* tableBlock, const uint8_t* unitBlock)
        : family(family), tableBlock(tableBlock), unitBlock(unitBlock) {}
    DeviceCorr(const DeviceCorr&) = delete;
    DeviceCorr& operator=(const DeviceCorr&) = delete;
    virtual ~DeviceCorr() = default;

    // Reads the blocks into the working tables and tells the analyzer what it
    // needs from them. The result is always 0.
    virtual int64_t Load(AnalyzerLink* link) = 0;
    // dB to add to a raw level in dB. att 0..3, gain 0..2, highIf 1 for the
    // 10.7 MHz IF and 0 for the 2.9 MHz IF, ifOffset in Hz from the IF centre,
    // band -1 to work it out from f.
    virtual double GetCorrection(double f, int att, int gain, int highIf, double ifOffset, int band) = 0;
    virtual void SelectAttenGain(double minCorrection, double referenceLevel, int* atten, int* gain) const = 0;
    virtual int BandOf(double f) const = 0;
    // Linear power ratio of a detector code (12.4 GHz family; 0 elsewhere).
    virtual double DetectorPowerRatio(double f, int att, int detectorSetting, uint16_t code,
                                      uint8_t unused) const = 0;

    const DeviceFamily family;  // the model follows the unit's type
    const uint8_t* tableBlock;  // not owned
    const uint8_t* unitBlock;   // not owned
    double temperature = 0.0;   // degrees Celsius
    bool preampOn = false;
    double timebaseFactor = 1.0;
};

// Place of x on a grid of points 0..last+1: the lower point, clamped to
// 0..last, and the fraction from it, left unclamped so that a term
// extrapolates linearly beyond the grid.
struct GridPos {
    int i;
    double w;
};

inline GridPos Locate(double x, int last) {
    double lower = std::floor(x);
    if (!(lower >= 0.0)) lower = 0.0;
    if (lower > last) lower = last;
    return {static_cast<int>(lower), x - lower};
}

template <typename T>
double Lerp(const T* values, GridPos p) {
    return (1.0 - p.w) * values[p.i] + p.w * values[p.i + 1];
}

// One row of an attenuation and gain choice: taken when the level v is
// below `below`. The last row of a table has an infinite limit.
struct AttenGainRow {
    double below;
    int atten;
    int gain;
};

template <std::size_t N>
void PickAttenGain(const AttenGainRow (&rows)[N], double v, int* atten, int* gain) {
    for (const AttenGainRow& row : rows) {
        if (v < row.below || &row == &rows[N - 1]) {
            *atten = row.atten;
            *gain = row.gain;
            return;
        }
    }
}

// Timebase factor of a stored trim word.
inline double TimebaseFactorOf(uint16_t word) { return (word - 32768.0) * 1e-9 + 1.0; }

// Roll-off of the IF filter's flank in dB at ifOffset Hz from the IF centre,
// from a table of one value per kHz up to 125 kHz, extrapolated beyond.
double IfRolloff(double ifOffset);

// The IF filter's response at ifOffset Hz from the IF centre, in dB: the
// measured table T (entry k stands for (25-k) x 5 kHz, linear power ratio
// times `scale`) less the roll-off of the filter's flank, reduced by
// `rolloffRelief` dB.
template <typename T>
double IfTerm(const T* table, double scale, double ifOffset, double rolloffRelief) {
    const double p = scale * Lerp(table, Locate(25.0 - ifOffset / 5000.0, 49));
    return 10.0 * std::log10(p) - (IfRolloff(ifOffset) - rolloffRelief);
}

}  // namespace qor

#endif
