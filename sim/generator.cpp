#include "generator.h"

#include <cmath>
#include <cstdio>

#include "command_log.h"

namespace qorsim {

namespace {
uint8_t At(const std::vector<uint8_t>& p, size_t i) { return i < p.size() ? p[i] : 0; }
}  // namespace

Generator::Generator(const GeneratorSpec& spec, const Timing& timing, CommandLog& log, OutputSink output)
    : UsbDevice(spec.serial, timing, log), spec_(spec), output_(std::move(output)),
      eeprom_(BuildGeneratorEeprom(spec)), replies_(1 << 14) {}

std::string Generator::SerialText(int) const {
    char text[16];
    std::snprintf(text, sizeof text, "%08u", serial_);
    return text;
}

double Generator::OutputFrequency() {
    std::lock_guard<std::mutex> lock(mutex_);
    return frequencyWord_ * 10.0;
}

int Generator::AmplitudeCode() {
    std::lock_guard<std::mutex> lock(mutex_);
    return amplitudeCode_;
}

void Generator::OnWrite(int, const uint8_t* data, uint32_t count, TimePoint) {
    log_.AddWire(serial_, data, count);
    for (uint32_t i = 0; i < count; ++i) {
        if (!decoder_.Feed(data[i], frame_)) continue;
        log_.AddCommand(serial_, frame_);
        Execute(frame_);
    }
}

void Generator::OnPortCycle(TimePoint) {
    decoder_.Reset();
    replies_.Clear();
}

void Generator::Execute(const std::vector<uint8_t>& p) {
    if (p.empty()) return;
    switch (p[0]) {
        case 'E':
            if (At(p, 1) == 0xFF && At(p, 2) == 0x01) {
                const size_t address = At(p, 3) | At(p, 4) << 8;
                uint8_t group[4];
                for (size_t i = 0; i < 4; ++i) group[i] = address + i < eeprom_.size() ? eeprom_[address + i] : 0xFF;
                replies_.Push(group, 4);
            }
            return;
        case 'F':
            frequencyWord_ = At(p, 1) | At(p, 2) << 8 | At(p, 3) << 16 | static_cast<uint32_t>(At(p, 4)) << 24;
            break;
        case 'A':
            amplitudeCode_ = At(p, 1);
            break;
        default:
            return; // reference, sweep and list commands: kept by the generator only
    }
    if (output_ && spec_.cabledTo) output_(spec_.cabledTo, OutputAtAnalyzer());
}

std::vector<SignalSpec> Generator::OutputAtAnalyzer() const {
    if (frequencyWord_ == 0) return {};
    SignalSpec s;
    s.frequency = frequencyWord_ * 10.0;
    s.level = GeneratorLevel(spec_, s.frequency, amplitudeCode_);
    switch (spec_.dut.kind) {
        case DutKind::Thru:
            break;
        case DutKind::Attenuator:
            s.level -= spec_.dut.loss;
            break;
        case DutKind::Filter: {
            const double x = 2.0 * (s.frequency - spec_.dut.center) / spec_.dut.bandwidth;
            s.level -= spec_.dut.loss + 10.0 * std::log10(1.0 + std::pow(x, 6.0));
            break;
        }
    }
    return {s};
}

std::vector<uint8_t> BuildGeneratorEeprom(const GeneratorSpec& spec) {
    std::vector<uint8_t> e(4096, 0x80);
    if (!spec.calibrated) return e;
    e[0] = static_cast<uint8_t>(spec.family == 2 ? 2 : 1);
    e[1] = 0;
    e[2] = 0x00; // timebase word 32768: no correction
    e[3] = 0x80;
    e[4] = 0x00;
    return e;
}

double GeneratorLevel(const GeneratorSpec& spec, double, int code) {
    // Each code step is 0.5 dB of attenuation below the maximum output.
    const double maximum = spec.family == 2 ? 0.0 : -10.0;
    return maximum - 0.5 * code;
}

}  // namespace qorsim
