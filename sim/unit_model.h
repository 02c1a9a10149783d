// The physical model of one analyzer unit: what a signal at the input gains
// or loses on its way to the samples, for every state the commands can set.
// Everything the instrument renders and everything its factory calibration
// records comes from here.
#ifndef QOR_SIM_UNIT_MODEL_H
#define QOR_SIM_UNIT_MODEL_H

#include <cstdint>

#include "front_end.h"

namespace qorsim {

class UnitModel {
public:
    UnitModel(uint32_t serial, int deviceType);

    int DeviceType() const { return type_; }
    Family UnitFamily() const { return FamilyOf(type_); }

    // Gain in dB from a signal's power at the input (dBm) to the power of its
    // complex tone in the samples (dB relative to full scale), for a signal at
    // RF `rf` that the front end `fe` puts at `b` Hz in the samples.
    double PathGainDb(const FrontEnd& fe, double rf, double b, double temperature) const;
    // Crossover between bands 3 and 4 of the 12.4 GHz family, Hz.
    double Crossover() const;

    // Gain for the input noise floor: that of the RF that lands at 0 Hz.
    double NoiseGainDb(const FrontEnd& fe, double temperature) const;

private:
    double IfFilterDb(bool highIf, double b) const;
    double BandFilterDb(const FrontEnd& fe, double rf) const;

    uint32_t serial_;
    int type_;
};

// The front end that measures `frequency` in `band` (-1: the band of the
// frequency), with the first LO the engines choose for that band.
FrontEnd ModelFrontEnd(const UnitModel& model, double frequency, int band, bool highIf);

}  // namespace qorsim

#endif
