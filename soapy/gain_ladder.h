// One overall gain over the unit's three level controls. Raising it first
// takes the attenuator out step by step, then raises the IF gain index, and
// only at the top switches the preamplifier in: the order that keeps the
// most headroom for a given gain.
#ifndef QOR_SOAPY_GAIN_LADDER_H
#define QOR_SOAPY_GAIN_LADDER_H

#include <vector>

namespace qorsoapy {

struct LevelSetting {
    int atten;    // attenuator step 0..3
    int gain;     // IF gain index 0..2
    bool preamp;
};

class GainLadder {
public:
    // The nominal steps of a device type (1..4).
    explicit GainLadder(int deviceType);

    double AttenStepDb() const { return attenStepDb_; }
    bool HasPreamp() const { return hasPreamp_; }
    double PreampDb() const { return kPreampDb; }
    double GainIndexDb(int index) const { return gainIndexDb_[index]; }

    // Overall gain of a setting: minus the attenuation plus the IF gain and preamplifier.
    double Overall(const LevelSetting& s) const;
    double Minimum() const { return Overall(rungs_.front()); }
    double Maximum() const { return Overall(rungs_.back()); }
    // The highest rung whose overall gain does not exceed `db` (the lowest rung below the range).
    LevelSetting ForOverall(double db) const;
    // The gain index whose nominal gain lies nearest `db`.
    int NearestGainIndex(double db) const;

private:
    static constexpr double kPreampDb = 20.0;
    double attenStepDb_;
    double gainIndexDb_[3];
    bool hasPreamp_;
    std::vector<LevelSetting> rungs_;  // rising overall gain
};

}  // namespace qorsoapy

#endif
