// The tracking generator's amplitude codes. The generator's firmware owns
// its synthesizer; the host gives it a level only as a code for its
// attenuators, found by a search of every code of the family against the
// calibration memory, with a bonus for the code already in use so that a
// level on the edge between two codes does not flip back and forth. A sweep
// loads the codes of all its points beforehand as a list of runs.
#ifndef QOR_TG_SYNTH_H
#define QOR_TG_SYNTH_H

#include <cstdint>

namespace qor {

constexpr int kTgMemoryBytes = 4096;
constexpr int kTgListEntries = 64;

// What the search needs of a generator: its memory and what it tells.
struct TgMemory {
    const uint8_t* eeprom;  // kTgMemoryBytes
    bool calibrated;
    bool orsk;  // the 12.4 GHz family
};

// The rule for a generator without calibration: 1 dB per code from -5 dBm,
// cut towards zero.
int UncalibratedTgCode(double amplitude);
// The searches of the two families; `previous` -1 for none.
int VelmTgCode(const uint8_t* eeprom, double frequency, double amplitude, int previous);
int OrskTgCode(const uint8_t* eeprom, double frequency, double amplitude, int previous);
// The code of a level at a frequency for this generator.
int TgAmplitudeCode(const TgMemory& memory, double frequency, double amplitude, int previous);

// The codes of a sweep's points as runs. The last run is one longer than the
// points it covers; once the entries are used up, the remaining points join
// the last entry, which takes the code of the sweep's last point.
struct AmplitudeList {
    int32_t points = 0;
    int32_t length = 0;
    int32_t run[kTgListEntries] = {};
    int32_t code[kTgListEntries] = {};
};

void BuildAmplitudeList(AmplitudeList& list, const TgMemory& memory, double amplitude, double start, double step,
                        int points);

}  // namespace qor

#endif
