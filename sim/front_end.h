// What the firmware's registers make of the receiver: the state the commands
// set, and the front end it selects (LO, first mixer, band path, IF, gains).
#ifndef QOR_SIM_FRONT_END_H
#define QOR_SIM_FRONT_END_H

#include <array>
#include <cstdint>

namespace qorsim {

constexpr double kSampleRate = 486111.1111111111;
constexpr double kAlternateSampleRate = 468750.0;
constexpr double kHopStep = 200000.0;     // LO step of hops, frames and detector sweeps
constexpr double kNominalHighIf = 10.7e6;
constexpr double kNominalLowIf = 2.9e6;
constexpr int kBlockSamples = 512;
constexpr int kBlockBytes = 4 * kBlockSamples;

// The IF that lands at 0 Hz in the samples: 22 and 6 times the normal sample
// rate (10694444.44 and 2916666.67 Hz); with the alternate clock 10687500 and
// 2812500 Hz.
inline double SampledIf(bool highIf, double sampleRate) {
    if (!highIf) return 6.0 * sampleRate;
    return sampleRate == kAlternateSampleRate ? 10687500.0 : 22.0 * sampleRate;
}

// First LO of the 12.4 GHz family, by path 0 to 3.
constexpr std::array<double, 4> kFirstLo{{7.80e9, 7.84e9, 8.76e9, 8.80e9}};

enum class Family { Velm, Orsk };
inline Family FamilyOf(int type) { return type >= 3 ? Family::Orsk : Family::Velm; }

// The registers the commands write, as the firmware keeps them.
struct FirmwareState {
    // Synthesizer: register words decoded, and the outboard divider ("D", 4 = bypassed).
    int integer = 220;
    int fraction = 0;
    int modulus = 100;
    int dividerLog2 = 0;
    int outboard = 4;
    int atten = 0;           // input attenuator step index
    int ifAtten = 0;         // dB
    int orskPath = 3;        // first-LO path 0..3
    int filter = 0;          // "F" byte
    uint8_t gainA = 0x80;    // "I" 06
    uint8_t gainB = 0x00;    // "I" 0C
    bool preamp = false;
    int sampleClock = 0;     // 0: 486111.11 Hz, 1: 468750 Hz
    bool selfTestSource = false;
    bool gatedOutput = false;
    bool referenceOutput = false;
    bool externalReference = false;
    uint16_t ocxoDac = 0x8000;
    uint16_t crossoverWord = 0;  // "Z" 2; 0 until the host sends it
    int clockShift = 0;
    int gateStep = 0;
    int gateFirst = 0;
    struct Segment {
        int startStep = 0;
        int stepsMinusOne = 0;
    };
    std::array<Segment, 256> segments{};
};

// The receiver as one block of samples sees it.
struct FrontEnd {
    double lo = 2.2e9;       // LO of the last mixer, Hz
    double firstLo = 0.0;    // first LO (12.4 GHz family, bands 2 and up); 0: no first mixer
    int band = 1;            // signal path: Velm 0 low band, 1 high band; Orsk band 0 to 5
    bool highIf = true;      // IF near 10.7 MHz, else near 2.9 MHz
    int atten = 0;
    int gain = 1;            // gain index 0 (least) to 2 (most)
    bool preamp = false;
    double sampleRate = kSampleRate;
    double ifCenter = 22.0 * kSampleRate; // the IF that lands at 0 Hz in the samples
    bool selfTest = false;
};

// Output of the synthesizer chain for the registers as they stand.
double SynthesizerFrequency(const FirmwareState& s);
// Front end for a plain tuning, from the registers.
FrontEnd FrontEndOf(const FirmwareState& s, int deviceType);
// Front end of one hardware step: the unit places its LO `step` x 200 kHz as an
// LO above the RF by the IF, choosing band (by that LO, with the crossover the
// host sent, else `crossover`), first LO and mixing side itself.
FrontEnd HopFrontEnd(const FirmwareState& s, int deviceType, double virtualLo, double crossover);
// Band of an RF frequency on the 12.4 GHz family, with the crossover in Hz.
int OrskBandOf(double frequency, double crossover);
// Gain index from the two gain register bytes.
int GainIndexOf(uint8_t a, uint8_t b);

}  // namespace qorsim

#endif
