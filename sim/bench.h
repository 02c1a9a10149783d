// The bench: which units are on the bus, what their inputs see, and how the
// instrument keeps time. Read from the bench file (JSON) or from the built-in
// default bench.
#ifndef QOR_SIM_BENCH_H
#define QOR_SIM_BENCH_H

#include <cstdint>
#include <string>
#include <vector>

namespace qorsim {

enum class SignalKind { Cw, Am, Fm, Burst, Hop, Usb, Lsb, Keyed };

// One signal at an analyzer input. Levels in dBm (carrier power), frequencies in Hz.
struct SignalSpec {
    SignalKind kind = SignalKind::Cw;
    double frequency = 0.0;
    double level = -200.0;
    double depth = 0.0;      // AM modulation depth, 0..1
    double tone = 1000.0;    // AM, FM, USB or LSB modulating frequency
    double deviation = 0.0;  // FM peak deviation
    double period = 0.01;    // burst and keyed repetition, seconds
    double duration = 0.001; // burst and keyed on-time, seconds
    double delay = 0.0;      // burst: start of the first on-time, seconds
    double rise = 0.005;     // keyed: raised-cosine edge, seconds
    std::vector<double> frequencies;  // hop: the carrier's channels in turn, Hz
    double dwell = 0.01;     // hop: time on each channel, seconds
    double phase = 0.0;      // starting phase, radians
};

// Faults a unit starts with; the control API changes them at run time.
struct FaultSpec {
    bool heldElsewhere = false;    // channel A open in another process
    int unknownFirmware = 0;       // firmware replies that are unrecognisable
    int missingReplies = 0;        // replies not sent (-1: all)
    int garbageReplies = 0;        // replies replaced by noise (-1: all)
    bool stalled = false;          // the stream channel delivers nothing
};

struct UnitSpec {
    uint32_t serial = 0;
    int type = 1;
    bool onDeviceCalibration = false;
    double temperature = 30.0;       // degrees C
    double noiseFloor = -165.0;      // dBm/Hz at the input
    bool voltageOption = true;       // the supply voltage read-back exists
    double voltage = 5.02;           // volts
    bool reference = false;          // a reference at the reference input
    double ovenCurrent = 48.0;       // oven oscillator current reading, mA
    double ovenWarmupMs = 0.0;       // instrument-clock time the oven still needs
    double timebaseCorrection = 0.0; // stored in the user EEPROM area; 0: none
    std::vector<SignalSpec> signals;
    FaultSpec faults;
};

enum class DutKind { Thru, Attenuator, Filter, LowPass, Notch };

struct DutSpec {
    DutKind kind = DutKind::Thru;
    double loss = 0.0;       // attenuator: dB; filters: loss in the pass band
    double center = 1.0e9;   // filter (band-pass), notch: centre frequency, Hz
    double bandwidth = 1.0e8;// filter, notch: 3 dB bandwidth, Hz
    double cutoff = 1.0e9;   // low-pass: 3 dB frequency, Hz
    double depth = 70.0;     // notch: loss at the centre, dB
};

// Transmission of a device under test in dB (0 or less) at a frequency.
double DutGainDb(const DutSpec& dut, double frequency);
// A device under test from its JSON object; throws std::runtime_error.
DutSpec ParseDutJson(const std::string& json);

struct GeneratorSpec {
    uint32_t serial = 0;
    int family = 1;          // 1: 4.4 GHz family, 2: 12.4 GHz family
    uint32_t cabledTo = 0;   // analyzer serial, 0: none
    bool calibrated = true;
    uint16_t timebaseWord = 32768;   // in the calibration memory; 32768: the clock is exact
    double timebaseCorrection = 0.0; // the f64 of the chip's user area; 0: none
    DutSpec dut;
};

// The order of the channels in the driver's list.
enum class ListOrder {
    ByUnit,   // A then B of each unit, in bench order
    Reversed, // the whole list backwards
    Mixed     // all A channels in bench order, then all B channels backwards
};

struct Bench {
    double clockScale = 1.0;    // "real": 1, "fast": kFastClockScale
    bool realtime = true;       // pacing "realtime" or "immediate"
    ListOrder listOrder = ListOrder::ByUnit;
    std::vector<UnitSpec> units;
    std::vector<GeneratorSpec> generators;
    std::string source;         // the JSON text it was read from
};

constexpr double kFastClockScale = 100.0;

// Parses a bench; throws std::runtime_error with a message on a bad one.
Bench ParseBench(const std::string& json);
Bench ReadBenchFile(const std::string& path);
const char* DefaultBenchJson();

}  // namespace qorsim

#endif
