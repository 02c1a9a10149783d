// One analyzer unit: a dual-channel chip whose channel A streams samples and
// whose channel B carries the framed commands and their replies. The firmware
// decodes each command, keeps the state it sets and answers from the unit's
// physics and factory calibration.
#ifndef QOR_SIM_ANALYZER_H
#define QOR_SIM_ANALYZER_H

#include <memory>
#include <string>
#include <vector>

#include "bench.h"
#include "byte_queue.h"
#include "factory_calibration.h"
#include "frame_decoder.h"
#include "generator.h"
#include "front_end.h"
#include "receiver.h"
#include "stream_program.h"
#include "unit_model.h"
#include "usb_device.h"

namespace qorsim {

class Analyzer : public UsbDevice {
public:
    static constexpr int kStreamChannel = 0;
    static constexpr int kCommandChannel = 1;

    Analyzer(const UnitSpec& spec, const Timing& timing, CommandLog& log);

    int ChannelCount() const override { return 2; }
    std::string Description(int channel) const override;
    std::string SerialText(int channel) const override;
    uint32_t ChipType() const override { return 6; } // dual-channel high-speed chip

    int DeviceType() const { return spec_.type; }
    const UnitModel& Model() const { return model_; }
    // The factory calibration, computed on first use.
    const CalibrationImage& Calibration();
    std::string FirmwareString() const;

    // The generator cabled to this unit's input, as it stands.
    void SetGenerator(const GeneratorState& state);

    // Fault and condition controls.
    void SetStalled(bool stalled);
    void DropStreamBytes(uint64_t offset, uint64_t count);
    void CorruptStreamBytes(uint64_t offset, uint64_t count);
    void LoseFrameHeaders(int count);
    void WrongSizeFrames(int count);
    void SetReplyFaults(int missing, int garbage);
    void SetUnknownFirmware(int count);
    void SetOvenWarming(double instrumentMs);
    void SetOvenCurrent(double milliamps);
    void SetReference(bool present);
    void SetTemperature(double celsius);
    uint64_t LostBlocks();
    // CPU seconds spent rendering sample blocks, by every unit of the process.
    static double RenderCpuSeconds();
    // Sample blocks rendered by every unit of the process.
    static int64_t RenderedBlocks();

private:
    struct ByteFault {
        uint64_t from;
        uint64_t to;
        bool drop;
    };

    void OnWrite(int channel, const uint8_t* data, uint32_t count, TimePoint now) override;
    size_t Pending(int channel, TimePoint now, size_t wanted) override;
    size_t Waiting(int channel, TimePoint now) override;
    size_t Take(int channel, uint8_t* out, size_t count) override;
    TimePoint NextArrival(int channel, TimePoint now) override;
    void OnPurge(int channel, uint32_t mask) override;
    void OnPortCycle(TimePoint now) override;

    void Execute(const std::vector<uint8_t>& payload, TimePoint now);
    void ExecuteOscillator(const std::vector<uint8_t>& p);
    void WriteSynthesizer(uint32_t word);
    void Reply(std::vector<uint8_t> bytes);
    void BeginStreamMode(TimePoint now);
    void Materialize(TimePoint now, size_t wanted);
    // A gated sweep whose generator has left the bus: nothing paces its blocks.
    bool Unpaced(TimePoint now) const;
    void PushStream(const uint8_t* data, size_t count);
    TimePoint NextBlockDue() const;
    double SampleRate() const;
    std::vector<uint8_t> DetectorSweep(int first, int last);
    void StartGatedSweep(int first, int last, TimePoint now);
    FrontEnd GatedFrontEnd(int point);
    const CalibrationImage& CalibrationLocked();

    UnitSpec spec_;
    UnitModel model_;
    Receiver receiver_;
    std::unique_ptr<CalibrationImage> calibration_;
    std::unique_ptr<GeneratorState> generator_;
    std::vector<SignalSpec> injected_; // the generator's output at its set frequency
    std::vector<SignalSpec> scene_;    // bench signals, the injected ones and the test source
    int gateLow_ = 0, gateHigh_ = 0;   // LO window of a gated sweep

    FirmwareState fw_;
    FrameDecoder decoder_;
    ByteQueue replies_;
    ByteQueue stream_;
    StreamProgram program_;
    std::vector<uint8_t> frame_;
    std::vector<uint8_t> bytes_;
    std::vector<int16_t> samples_;

    TimePoint powerOn_;
    TimePoint modeStart_;
    uint64_t blocksDone_ = 0;  // blocks of the current mode, sent or lost
    uint64_t sampleIndex_ = 0; // absolute sample time of the next block
    uint64_t streamPosition_ = 0;
    uint64_t lostBlocks_ = 0;
    std::vector<ByteFault> byteFaults_;
    int missingReplies_ = 0;
    int garbageReplies_ = 0;
    int unknownFirmware_ = 0;
    TimePoint ovenWarmUntil_{};
    uint64_t garbageSeed_;
};

}  // namespace qorsim

#endif
