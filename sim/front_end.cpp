#include "front_end.h"

#include <cmath>

namespace qorsim {

namespace {

void SetSampling(const FirmwareState& s, bool highIf, FrontEnd& fe) {
    fe.sampleRate = s.sampleClock == 1 ? kAlternateSampleRate : kSampleRate;
    fe.highIf = highIf;
    fe.ifCenter = SampledIf(highIf, fe.sampleRate);
}

void SetLevels(const FirmwareState& s, int deviceType, FrontEnd& fe) {
    fe.atten = s.atten;
    fe.gain = GainIndexOf(s.gainA, s.gainB);
    fe.preamp = deviceType == 2 && s.preamp;
    fe.selfTest = s.selfTestSource;
}

// IF choice of the "F" byte: low IF when its IF field is 1.
bool HighIfOf(const FirmwareState& s, int deviceType) {
    const int a = FamilyOf(deviceType) == Family::Orsk ? (s.filter >> 4) : s.filter;
    return a != 1;
}


}  // namespace

int GainIndexOf(uint8_t a, uint8_t b) {
    if (a == 0 && b == 0) return 1;
    if (a == 0 && b == 0x80) return 2;
    return 0;
}

double SynthesizerFrequency(const FirmwareState& s) {
    const int modulus = s.modulus > 0 ? s.modulus : 1;
    double f = (s.integer + static_cast<double>(s.fraction) / modulus) * 1e7;
    f = std::ldexp(f, -s.dividerLog2);
    if (s.outboard < 4) f = std::ldexp(f, -(s.outboard + 3));
    return f;
}

int OrskBandOf(double f, double crossover) {
    if (f < 150e6) return 0;
    if (f < 4.0064e9) return 1;
    if (f < 6.5024e9) return 2;
    if (f < crossover) return 3;
    if (f < 9.7536e9) return 4;
    return 5;
}

FrontEnd FrontEndOf(const FirmwareState& s, int deviceType) {
    FrontEnd fe;
    SetSampling(s, HighIfOf(s, deviceType), fe);
    SetLevels(s, deviceType, fe);
    fe.lo = SynthesizerFrequency(s);
    if (FamilyOf(deviceType) == Family::Velm) {
        // The divided synthesizer path feeds the low band's mixer.
        fe.band = s.outboard < 4 ? 0 : 1;
        return fe;
    }
    const int k = (s.filter & 0x08) ? (s.filter & 0x03) : 1;
    const int path = s.orskPath & 3;
    const bool upperPath = (path & 2) != 0;
    switch (k) {
        case 0: fe.band = 0; break;
        case 1: fe.band = 1; break;
        case 2: fe.band = upperPath ? 3 : 2; fe.firstLo = kFirstLo[path]; break;
        default: fe.band = upperPath ? 5 : 4; fe.firstLo = kFirstLo[path]; break;
    }
    return fe;
}

FrontEnd HopFrontEnd(const FirmwareState& s, int deviceType, double virtualLo, double crossover) {
    FrontEnd fe;
    SetSampling(s, HighIfOf(s, deviceType), fe);
    SetLevels(s, deviceType, fe);
    if (FamilyOf(deviceType) == Family::Velm) {
        fe.lo = virtualLo;
        fe.band = virtualLo > 1.499e8 ? 1 : 0;
        return fe;
    }
    const int band = OrskBandOf(virtualLo, s.crossoverWord ? s.crossoverWord * kHopStep : crossover);
    fe.band = band;
    if (band <= 1) {
        fe.lo = virtualLo;
        return fe;
    }
    // The unit keeps the spectral sense of a plain LO above the signal: below
    // the first LO it puts its last LO under the first IF, above it over.
    const int path = (band == 2 || band == 4) ? 0 : 3;
    fe.firstLo = kFirstLo[path];
    fe.lo = band <= 3 ? fe.firstLo - virtualLo : virtualLo - fe.firstLo;
    return fe;
}

}  // namespace qorsim
