#include "generator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "command_log.h"

namespace qorsim {

namespace {
uint8_t At(const std::vector<uint8_t>& p, size_t i) { return i < p.size() ? p[i] : 0; }
}  // namespace

Generator::Generator(const GeneratorSpec& spec, const Timing& timing, CommandLog& log, OutputSink output)
    : UsbDevice(spec.serial, timing, log), output_(std::move(output)), eeprom_(BuildGeneratorEeprom(spec)),
      replies_(1 << 14) {
    state_.spec = spec;
    // The clock's factor as the host reads it: the user area's, else the
    // memory's trim word when it is within range.
    if (spec.calibrated && spec.timebaseWord >= 28768 && spec.timebaseWord <= 36768)
        clockFactor_ = (spec.timebaseWord - 32768.0) * 1e-9 + 1.0;
    if (spec.timebaseCorrection != 0.0) {
        clockFactor_ = spec.timebaseCorrection;
        std::memcpy(userArea_.data(), &spec.timebaseCorrection, sizeof(double));
    }
}

void Generator::SetDut(const DutSpec& dut) {
    std::lock_guard<std::mutex> lock(mutex_);
    state_.spec.dut = dut;
    Publish();
}

DutSpec Generator::Dut() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_.spec.dut;
}

double Generator::Level(double frequency, int code) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return GeneratorLevel(state_.spec, frequency, code);
}

int Generator::Reference() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_.reference;
}

void Generator::Unplug(double afterRealMs) {
    UsbDevice::Unplug(afterRealMs);
    std::lock_guard<std::mutex> lock(mutex_);
    state_.unplugAt = afterRealMs <= 0.0 ? SteadyClock::now() : AfterSeconds(SteadyClock::now(), afterRealMs * 1e-3);
    Publish();
}

void Generator::Replug() {
    UsbDevice::Replug();
    std::lock_guard<std::mutex> lock(mutex_);
    state_.unplugAt = TimePoint::max();
    Publish();
}

void Generator::Publish() {
    if (output_ && state_.spec.cabledTo) output_(state_);
}

std::string Generator::SerialText(int) const {
    char text[16];
    std::snprintf(text, sizeof text, "%08u", serial_);
    return text;
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

uint32_t Word32(const std::vector<uint8_t>& p) {
    return At(p, 1) | At(p, 2) << 8 | At(p, 3) << 16 | static_cast<uint32_t>(At(p, 4)) << 24;
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
            // The host applies the clock's factor; the output divides it out.
            state_.frequency = Word32(p) * 10.0 / clockFactor_;
            break;
        case 'A':
            state_.code = At(p, 1);
            break;
        case 'S':
            state_.sweepStart = Word32(p) * 10.0;
            break;
        case 'T':
            state_.sweepStep = Word32(p) * 10.0;
            break;
        case 'G':
            state_.sweepPoints = At(p, 1) | At(p, 2) << 8;
            ExpandList();
            break;
        case 'L': {
            const size_t entry = At(p, 1);
            if (entry >= 64) return;
            if (list_.size() <= entry) list_.resize(entry + 1, {0, 0});
            list_[entry] = {At(p, 2), At(p, 3) << 8 | At(p, 4)};
            if (entry == 0) list_.resize(1); // a new list starts at entry 0
            ExpandList();
            break;
        }
        case 'R':
            state_.reference = At(p, 1);  // what it selects is the generator's own affair
            return;
        default:
            return;
    }
    Publish();
}

void Generator::ExpandList() {
    auto& codes = state_.pointCodes;
    codes.clear();
    for (const auto& [code, run] : list_) codes.insert(codes.end(), static_cast<size_t>(run), code);
    const int last = list_.empty() ? state_.code : list_.back().first;
    codes.resize(static_cast<size_t>(std::max(state_.sweepPoints, 0)), last);
}

SignalSpec SignalAtAnalyzer(const GeneratorSpec& spec, double frequency, int code) {
    SignalSpec s;
    s.frequency = frequency;
    s.level = GeneratorLevel(spec, frequency, code) + DutGainDb(spec.dut, frequency);
    return s;
}

double DutGainDb(const DutSpec& dut, double f) {
    switch (dut.kind) {
        case DutKind::Thru:
            return 0.0;
        case DutKind::Attenuator:
            return -dut.loss;
        case DutKind::Filter: {
            // Third-order Butterworth band-pass shape, 18 dB per octave of detuning.
            const double x = 2.0 * (f - dut.center) / dut.bandwidth;
            return -dut.loss - 10.0 * std::log10(1.0 + std::pow(x, 6.0));
        }
        case DutKind::LowPass: {
            const double x = f / dut.cutoff;
            return -dut.loss - 10.0 * std::log10(1.0 + std::pow(x, 6.0));
        }
        case DutKind::Notch: {
            // A resonant band-stop: `depth` dB down at the centre, 3 dB at the
            // edges of `bandwidth`.
            const double x = 2.0 * (f - dut.center) / dut.bandwidth;
            const double floor = std::pow(10.0, -dut.depth / 10.0);
            return -dut.loss + 10.0 * std::log10((x * x + floor) / (x * x + 1.0));
        }
    }
    return 0.0;
}

namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;

// Output at code 0, dBm, of each family, before the attenuators.
double ZeroCodeLevel(const GeneratorSpec& g, double f) {
    const double phase = (g.serial % 97) * 0.1;
    if (g.family == 2) return -9.5 - 0.9 * f / 12.4e9 + 0.3 * std::sin(kTwoPi * f / 1.1e9 + phase);
    return -4.5 - 0.8 * f / 4.4e9 + 0.3 * std::sin(kTwoPi * f / 0.9e9 + phase);
}

// 4.4 GHz family: five binary attenuator stages of nominally 1, 2, 4, 8 and 16 dB.
double StageDb(const GeneratorSpec& g, int bit, double f) {
    return -(1 << bit) * (1.0 + 0.02 * std::sin(kTwoPi * f / 2.5e9 + bit + g.serial % 7));
}

// 12.4 GHz family: 0.5 dB per code, with an error per group of codes that is
// constant over each 100 MHz row.
double GroupError(const GeneratorSpec& g, int k, int row) {
    return 0.25 * std::sin(0.37 * row + 1.3 * k + (g.serial % 11));
}

double OrskCodeDb(const GeneratorSpec& g, int code, int row) {
    auto r = [&](int k) { return GroupError(g, k, row); };
    double a = -0.5 * code;
    if (code == 0) a += r(0);
    else if (code < 8) a += (6.0 - (code - 1)) / 6.0 * r(1) + (code - 1) / 6.0 * r(2);
    else if (code < 16) a += r(3);
    else if (code < 24) a += (code - 16) / 7.0 * r(3);
    else a += r(4 + (code - 24) / 8);
    return a;
}

// The base adjustment that the host adds for the 12.4 GHz family's tables.
double OrskAdjustment(double f) {
    if (f >= 7.2e9) return -0.7;
    if (f >= 3.2e9) return -0.3;
    if (f >= 2.2e9) return -((3.2e9 - f) * 0.4 / 1e9 + 0.3);
    if (f >= 16e6) return -0.7;
    if (f < 150e3) return 0.4;
    if (f < 250e3) return 0.2;
    return 0.0;
}

void PutI16(std::vector<uint8_t>& e, size_t at, long v) {
    const auto word = static_cast<uint16_t>(static_cast<int16_t>(std::clamp(v, -32768L, 32767L)));
    e[at] = static_cast<uint8_t>(word);
    e[at + 1] = static_cast<uint8_t>(word >> 8);
}

void PutU8(std::vector<uint8_t>& e, size_t at, double v) { e[at] = static_cast<uint8_t>(std::clamp(std::lround(v), 0L, 255L)); }

}  // namespace

std::vector<uint8_t> BuildGeneratorEeprom(const GeneratorSpec& g) {
    std::vector<uint8_t> e(4096, 0x80);
    if (!g.calibrated) return e;
    std::fill(e.begin(), e.begin() + 68, 0);
    e[0] = static_cast<uint8_t>(g.family == 2 ? 2 : 1);
    e[2] = static_cast<uint8_t>(g.timebaseWord);
    e[3] = static_cast<uint8_t>(g.timebaseWord >> 8);
    struct Table {
        size_t offset;
        int count;
        double first, step;
    };
    if (g.family != 2) {
        // Levels in 0.01 dB; the host takes 0.7 dB less the frequency x 1e-10 off them from 28 MHz up.
        const Table tables[] = {{68, 28, 1e6, 1e6},      {124, 22, 30e6, 5e6},    {168, 14, 140e6, 1e7},
                                {196, 28, 280e6, 1e7},   {252, 56, 550e6, 1e7},   {364, 112, 1.1e9, 1e7},
                                {588, 222, 2.2e9, 1e7}};
        for (const auto& t : tables)
            for (int i = 0; i < t.count; ++i) {
                const double f = t.first + i * t.step;
                const double adjust = f >= 28e6 ? 0.7 - f * 1e-10 : 0.0;
                PutI16(e, t.offset + 2 * i, std::lround((ZeroCodeLevel(g, f) + adjust) * 100.0));
            }
        for (int bit = 0; bit < 5; ++bit)
            for (int j = 0; j < 222; ++j) PutI16(e, 1032 + 444 * bit + 2 * j, std::lround(StageDb(g, bit, j * 2e7) * 100.0));
        return e;
    }
    // Levels in units of -0.1 dB, 8 dB under the output at code 0, before the host's adjustment.
    const Table tables[] = {{68, 16, 1e6 - 1, 1e6},   {84, 24, 20e6, 5e6},     {108, 14, 140e6, 1e7},
                            {122, 28, 280e6, 1e7},    {150, 56, 550e6, 1e7},   {206, 112, 1.1e9, 1e7},
                            {318, 182, 2.2e9, 1e7},   {500, 322, 4e9, 1e7},    {822, 582, 7.2e9, 1e7}};
    for (const auto& t : tables)
        for (int i = 0; i < t.count; ++i) {
            const double f = t.first + i * t.step;
            PutU8(e, t.offset + i, -(ZeroCodeLevel(g, f) - 8.0 - OrskAdjustment(f)) * 10.0);
        }
    for (int row = 0; row < 168; ++row)
        for (int k = 0; k < 9; ++k) PutU8(e, 1404 + 16 * row + k, (GroupError(g, k, row) + 2.56) / 0.02);
    return e;
}

double GeneratorLevel(const GeneratorSpec& g, double f, int code) {
    if (g.family == 2) return ZeroCodeLevel(g, f) + OrskCodeDb(g, std::clamp(code, 0, 63), static_cast<int>(f / 1e8));
    double level = ZeroCodeLevel(g, f);
    for (int bit = 0; bit < 5; ++bit)
        if (code & (1 << bit)) level += StageDb(g, bit, std::floor(f / 2e7) * 2e7);
    return level;
}

}  // namespace qorsim
