// The physical model of one analyzer unit: what a signal at the input gains
// or loses on its way to the samples, for every state the commands can set,
// and what its detector reads. The receiver renders from it and the factory
// calibration is measured from it.
//
// The gain is a sum of smooth terms, each varying from unit to unit (seeded
// by the serial): a level reference per band, the gain stages, a response per
// band and attenuator step with ripple and tilt, the preamplifier, linear
// temperature drift, the offset between the two IF paths, the IF filter and
// the band filters in front of the mixers.
#ifndef QOR_SIM_UNIT_MODEL_H
#define QOR_SIM_UNIT_MODEL_H

#include <array>
#include <cstdint>

#include "front_end.h"
#include "step_bend.h"

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
    // Gain for the input noise floor: that of the RF that lands at 0 Hz, before
    // the IF filter (the receiver shapes the noise with it).
    double NoiseGainDb(const FrontEnd& fe, double temperature) const;
    // Crossover between bands 3 and 4 of the 12.4 GHz family, Hz, a multiple of 12.8 MHz.
    double Crossover() const { return crossover_; }

    // IF filter: the nominal roll-off plus the unit's own shape, at `b` Hz in the samples.
    double IfFilterDb(bool highIf, double b) const;
    double IfShapeDb(bool highIf, double b) const;
    // The nominal roll-off of the IF filters, per kHz of offset, continued
    // straight beyond 125 kHz; on type 2 it runs 0.6 dB lower.
    double RolloffDb(double b) const;
    static double NominalRolloffDb(double offsetHz);

    // ---- 4.4 GHz family terms (band 0: low band, 1: high band) ----
    double VelmLevelBase(int band) const;      // dB of loss at gain index 1, attenuator 0
    double VelmGainStep(int index) const;      // index 0: loss of gain 0 below 1; 2: gain of 2 above 1
    double VelmResponse(double f, int band, int att) const; // loss beyond the nominal 5 dB per step
    static double VelmTilt(int type);          // dB per Hz of the high band's falling gain
    double VelmPreampGain(double f, int band) const;
    double VelmPreampRolloff(double f) const;  // loss of the preamplifier below 1 MHz
    double VelmAttenDrift(double f, int band, int att, double temperature) const;
    double VelmPreampDrift(double f, int band, double temperature) const;
    double VelmHighIfDelta(double f, int band, double temperature) const; // type 2: high IF minus low IF
    double VelmLowIfOffset(int band) const;    // type 1: low IF minus high IF
    static double VelmRecordTemperature(int record);
    static constexpr int kVelmReferenceRecord = 6;

    // ---- 12.4 GHz family terms ----
    // Gain at gain index 0 of band `band` for the IF and attenuator step.
    double OrskValue(double f, int band, bool highIf, int att, double temperature) const;
    double OrskGainStep(double temperature) const;
    static double OrskRecordTemperature(int record);
    static constexpr int kOrskReferenceRecord = 6;

    // ---- detector sweeps ("B") ----
    // IF of the detector, Hz; the response of the IF filter in front of it at
    // `offset` from that IF, and the filter's noise bandwidth, Hz (one side of the LO).
    double DetectorIf() const;
    static double DetectorBandDb(double offset);
    static double DetectorNoiseBandwidth();
    // Gain from the input to the detector (12.4 GHz family), for the attenuator
    // step and the detector's range: the sensitive one (the IF attenuator's
    // high settings) or the other.
    double DetectorGainDb(double f, int att, bool sensitiveRange, double temperature) const;
    // The power at the detector that a code stands for (no floor), and the
    // code that a power at the detector reads (floor and limiting included).
    static double DetectorPowerOfCode(double code, double temperature);
    static int DetectorCode(double power, double temperature);
    // dB more gain in the sensitive range, with the attenuator's nominal steps.
    static constexpr double kDetectorRangeGap = 30.0;
    // The sensitive range at step 3 over the other one at step 1 (two nominal steps of 10 dB less).
    static constexpr double kDetectorStep3Gain = kDetectorRangeGap - 20.0;
    static constexpr int kDetectorMaxCode = 1023;   // the converter's full scale
    static constexpr int kDetectorCurveTop = 780;   // highest code the factory's curves reach

private:
    double Vary(int key) const; // unit-specific value in [-1, 1]
    // Smooth shapes of the 4.4 GHz family's stored terms, before their bend
    // onto the steps in which the unit block keeps them.
    void BendVelmTerms();
    double IfShapeSmooth(bool highIf, double b) const;
    double VelmResponseShape(double f, int band, int att) const; // high band: less the tilt
    double VelmPreampShape(double f, int band) const;
    double VelmRolloffShape(double f) const;
    double VelmRolloffAt300k() const;
    double Ripple(double f, int key, double period, double amplitude) const;
    double OrskBandResponse(double f, int band) const;
    double DetectorShape(double f) const;
    static double DetectorLevelOfCode(double code, double temperature); // before limiting
    double BandFilterDb(const FrontEnd& fe, double rf) const;
    double ComputeCrossover() const;

    uint32_t serial_;
    int type_;
    double crossover_;
    std::array<StepBend, 4> lowResponseBend_, highResponseBend_;
    StepBend lowPreampBend_, highPreampBend_, rolloffBend_;
    std::array<StepBend, 2> ifShapeBend_; // low IF, high IF
};

// The front end that measures `frequency` in `band` (-1: the band of the
// frequency), with the first LO the engines choose for that band.
FrontEnd ModelFrontEnd(const UnitModel& model, double frequency, int band, bool highIf);

}  // namespace qorsim

#endif
