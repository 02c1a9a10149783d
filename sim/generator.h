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

class Generator : public UsbDevice {
public:
    // `output` is told the generator's signal at the cabled analyzer's input
    // after every command that changes it (empty: output off).
    using OutputSink = std::function<void(uint32_t analyzerSerial, std::vector<SignalSpec>)>;

    Generator(const GeneratorSpec& spec, const Timing& timing, CommandLog& log, OutputSink output);

    int ChannelCount() const override { return 1; }
    std::string Description(int) const override { return "TarvenWorksTG"; }
    std::string SerialText(int) const override;
    uint32_t ChipType() const override { return 5; } // single-channel full-speed chip

    const std::vector<uint8_t>& Eeprom() const { return eeprom_; }
    double OutputFrequency();
    int AmplitudeCode();

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
    std::vector<SignalSpec> OutputAtAnalyzer() const;

    GeneratorSpec spec_;
    OutputSink output_;
    std::vector<uint8_t> eeprom_;
    FrameDecoder decoder_;
    ByteQueue replies_;
    std::vector<uint8_t> frame_;
    uint32_t frequencyWord_ = 0; // units of 10 Hz
    int amplitudeCode_ = 30;
};

// The generator's calibration memory for its family.
std::vector<uint8_t> BuildGeneratorEeprom(const GeneratorSpec& spec);
// Output level in dBm of an amplitude code at a frequency.
double GeneratorLevel(const GeneratorSpec& spec, double frequency, int code);

}  // namespace qorsim

#endif
