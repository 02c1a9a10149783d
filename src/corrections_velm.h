// Corrections of the 4.4 GHz family (device types 1 and 2): a level
// reference per band, gain steps, a response per attenuation from the unit
// block, and on type 2 the temperature records of the table block.
#ifndef QOR_CORRECTIONS_VELM_H
#define QOR_CORRECTIONS_VELM_H

#include <memory>

#include "corrections.h"

namespace qor {

// Bytes of the table block that a unit of this family keeps in its cache file.
constexpr uint32_t kVelmTableBytes = 458624;

class CorrectionsVelm final : public DeviceCorr {
public:
    CorrectionsVelm(DeviceFamily family, const uint8_t* tableBlock, const uint8_t* unitBlock);
    ~CorrectionsVelm() override;

    int64_t Load(AnalyzerLink* link) override;
    double GetCorrection(double f, int att, int gain, int highIf, double ifOffset, int band) override;
    void SelectAttenGain(double minCorrection, double referenceLevel, int* atten, int* gain) const override;
    int BandOf(double f) const override;
    double DetectorPowerRatio(double f, int att, int detectorSetting, uint16_t code,
                              uint8_t unused) const override;

    struct Tables;

private:
    double LevelTerm(bool lowBand, int gain) const;
    double ResponseTerm(double f, bool lowBand, int att) const;
    double TemperatureTerm(double f, bool lowBand, int att, int highIf) const;

    std::unique_ptr<Tables> tables_;
    const uint8_t* unit_ = nullptr;  // the unit block, once loaded
};

}  // namespace qor

#endif
