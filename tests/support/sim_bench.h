// The virtual instrument's bench as the tests describe it, and its JSON text
// (fields as sim/README.md gives them). An optional field left unset stays
// out of the text, so that the instrument's own default applies.
#ifndef QOR_TESTS_SUPPORT_SIM_BENCH_H
#define QOR_TESTS_SUPPORT_SIM_BENCH_H

#include <optional>
#include <string>
#include <vector>

namespace simbench {

struct Signal {
    std::string kind = "cw";  // "cw", "am", "fm", "usb", "lsb", "burst", "keyed" or "hop"
    double frequency = 0.0;   // Hz
    double level = 0.0;       // dBm
    std::optional<double> depth;      // AM
    std::optional<double> deviation;  // FM, Hz
    std::optional<double> tone;       // the modulating tone of AM, FM, USB and LSB, Hz
    std::optional<double> period;     // burst and keyed: repetition, s
    std::optional<double> duration;   // burst and keyed: on-time, s
    std::optional<double> rise;       // keyed: edge, s
    std::vector<double> frequencies;  // hop: the channels, Hz
    std::optional<double> dwell;      // hop: time on each channel, s
};

Signal Cw(double frequency, double level);

struct Unit {
    Unit(unsigned serial, int type) : serial(serial), type(type) {}
    Unit& Temperature(double celsius) { temperature = celsius; return *this; }
    Unit& NoiseFloor(double dbmPerHz) { noiseFloor = dbmPerHz; return *this; }
    Unit& OnDeviceCalibration(bool onBoard) { onDeviceCalibration = onBoard; return *this; }
    Unit& Voltage(double volts) { voltage = volts; return *this; }
    Unit& TimebaseCorrection(double factor) { timebaseCorrection = factor; return *this; }
    Unit& HeldElsewhere() { heldElsewhere = true; return *this; }
    Unit& Add(const Signal& signal) { signals.push_back(signal); return *this; }

    unsigned serial;
    int type;
    std::optional<double> temperature;
    std::optional<double> noiseFloor;
    std::optional<bool> onDeviceCalibration;
    std::optional<double> voltage;
    std::optional<double> timebaseCorrection;
    bool heldElsewhere = false;  // the fault: its stream channel open in another process
    std::vector<Signal> signals;
};

struct Generator {
    unsigned serial = 0;
    int family = 1;
    unsigned cabledTo = 0;          // the analyzer at its output
    std::optional<double> attenuator;  // dB of an attenuator between the two; unset: a thru
};

struct Bench {
    std::string clock = "fast";  // the library's pauses pass quickly
    std::string pacing = "immediate";
    std::string listOrder = "unit";
    std::vector<Unit> units;
    std::vector<Generator> generators;
};

std::string Json(const Bench& bench);

}  // namespace simbench

#endif
