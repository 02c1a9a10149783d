// The tracking generator: one channel at a low baud rate that takes framed
// commands and answers only reads of its 4096-byte calibration memory. Its
// output, through the device under test, is a signal at the input of the
// analyzer it is cabled to.
#ifndef QOR_SIM_GENERATOR_H
#define QOR_SIM_GENERATOR_H

#include <functional>
#include <vector>

#include "bench.h"
#include "byte_queue.h"
#include "frame_decoder.h"
#include "usb_device.h"

namespace qorsim {

// What the generator puts out, as the cabled analyzer needs to know it.
struct GeneratorState {
    GeneratorSpec spec;
    double frequency = 0.0;       // Hz; 0: off
    int code = 30;                // amplitude code
    double sweepStart = 0.0;      // the loaded sweep, Hz
    double sweepStep = 0.0;
    int sweepPoints = 0;
    std::vector<int> pointCodes;  // amplitude code of each sweep point, from the list
    int reference = 0;            // the last "R" choice, as sent
    // From then on the generator is off the bus: it paces no gated sweep.
    TimePoint unplugAt = TimePoint::max();
};

// The generator's signal at the analyzer's input, through the device under test.
SignalSpec SignalAtAnalyzer(const GeneratorSpec& spec, double frequency, int code);

class Generator : public UsbDevice {
public:
    // `output` is told the generator's state after every command that changes it.
    using OutputSink = std::function<void(const GeneratorState&)>;

    Generator(const GeneratorSpec& spec, const Timing& timing, CommandLog& log, OutputSink output);

    int ChannelCount() const override { return 1; }
    std::string Description(int) const override { return "TarvenWorksTG"; }
    std::string SerialText(int) const override;
    uint32_t ChipType() const override { return 5; } // single-channel full-speed chip

    const std::vector<uint8_t>& Eeprom() const { return eeprom_; }
    // Swaps the device under test, as a person swaps the cable for it.
    void SetDut(const DutSpec& dut);
    DutSpec Dut() const;
    double Level(double frequency, int code) const;
    int Reference() const;
    void Unplug(double afterRealMs) override;
    void Replug() override;
    // The frequency factor of its clock: what the host must apply to "F" for
    // the output to land where it wants it (1.0: exact).
    double ClockFactor() const { return clockFactor_; }

private:
    void OnWrite(int channel, const uint8_t* data, uint32_t count, TimePoint now) override;
    size_t Pending(int, TimePoint, size_t) override { return replies_.Size(); }
    size_t Waiting(int, TimePoint) override { return replies_.Size(); }
    size_t Take(int, uint8_t* out, size_t count) override { return replies_.Pop(out, count); }
    TimePoint NextArrival(int, TimePoint) override { return TimePoint::max(); }
    void OnPurge(int, uint32_t mask) override {
        if (mask & 1) replies_.Clear();
    }
    void OnPortCycle(TimePoint) override;

    void Execute(const std::vector<uint8_t>& p);
    void ExpandList();

    void Publish();

    GeneratorState state_;
    double clockFactor_ = 1.0;
    OutputSink output_;
    std::vector<std::pair<int, int>> list_; // (code, run) of each amplitude list entry
    std::vector<uint8_t> eeprom_;
    FrameDecoder decoder_;
    ByteQueue replies_;
    std::vector<uint8_t> frame_;
};

// The generator's calibration memory for its family.
std::vector<uint8_t> BuildGeneratorEeprom(const GeneratorSpec& spec);
// Output level in dBm of an amplitude code at a frequency.
double GeneratorLevel(const GeneratorSpec& spec, double frequency, int code);

}  // namespace qorsim

#endif
