// Corrections of the 12.4 GHz family (device types 3 and 4): the whole
// path measured per band, attenuator state and IF at twelve temperatures,
// the detector curves of the broadband sweep, and the crossover between
// bands 3 and 4, which Load finds and sends to the analyzer.
#ifndef QOR_CORRECTIONS_ORSK_H
#define QOR_CORRECTIONS_ORSK_H

#include <memory>

#include "corrections.h"

namespace qor {

// Bytes of the table block that a unit of this family keeps in its cache file.
constexpr uint32_t kOrskTableBytes = 571616;

class CorrectionsOrsk final : public DeviceCorr {
public:
    CorrectionsOrsk(DeviceFamily family, const uint8_t* tableBlock, const uint8_t* unitBlock);
    ~CorrectionsOrsk() override;

    // Sends the oven trim and the crossover; a null link sends nothing.
    int64_t Load(AnalyzerLink* link) override;
    double GetCorrection(double f, int att, int gain, int highIf, double ifOffset, int band) override;
    void SelectAttenGain(double minCorrection, double referenceLevel, int* atten, int* gain) const override;
    int BandOf(double f) const override;
    double DetectorPowerRatio(double f, int att, int detectorSetting, uint16_t code,
                              uint8_t unused) const override;

    double crossoverFrequency = 0.0;  // Hz
    uint32_t crossoverWord = 0;       // in units of 200 kHz, a multiple of 64

    struct Tables;

private:
    struct Bracket {
        int upper;  // record k; the lower record is k-1
        double u;   // weight of record k
    };
    void SpreadTableBlock();
    void RepairLowFrequencies();
    void FindCrossover();
    Bracket BracketTemperature() const;
    double Response(double f, int att, int gain, int highIf, int band) const;
    double PathTerm(int record, double f, int att, int gain, int highIf, int band) const;
    double RfLevel(double f, int record) const;
    double DetectorCurve(bool curveB, uint16_t code, int record) const;

    std::unique_ptr<Tables> tables_;
};

}  // namespace qor

#endif
