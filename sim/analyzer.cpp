#include "analyzer.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "command_log.h"

namespace qorsim {

namespace {

constexpr size_t kReplyQueueSize = 1 << 16;
constexpr size_t kStreamQueueSize = 1 << 20;
constexpr double kSelfTestFrequency = 1.4e8;

// Nanoseconds of CPU spent rendering sample blocks, by all units.
std::atomic<int64_t> renderCpuNs{0};
// Sample blocks rendered, by all units.
std::atomic<int64_t> renderedBlocks{0};

double ThreadCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// What one reading of the thread's CPU clock costs (a system call): of the
// two readings around a rendering, about one reading's worth falls outside
// the interval they measure, and it is the instrument's work, not the host's.
double ClockReadSeconds() {
    static const double cost = [] {
        constexpr int kReads = 64;
        const double start = ThreadCpuSeconds();
        for (int i = 0; i < kReads; ++i) ThreadCpuSeconds();
        return (ThreadCpuSeconds() - start) / (kReads + 1);
    }();
    return cost;
}

void AddRenderCpu(double seconds) { renderCpuNs += static_cast<int64_t>((seconds + ClockReadSeconds()) * 1e9); }

uint8_t At(const std::vector<uint8_t>& p, size_t i) { return i < p.size() ? p[i] : 0; }
int Word16(const std::vector<uint8_t>& p, size_t lo) { return At(p, lo) | At(p, lo + 1) << 8; }

// Level of the self-test source, chosen so that the self-test's first
// measurement (high band, 2 attenuator steps, least gain) lands mid-window.
double SelfTestLevel(const UnitModel& model, double temperature) {
    FrontEnd fe;
    fe.band = 1;
    fe.atten = 2;
    fe.gain = 0;
    const double target = model.UnitFamily() == Family::Orsk ? -24.0 : -34.7;
    return target - model.PathGainDb(fe, kSelfTestFrequency, 0.0, temperature);
}

}  // namespace

Analyzer::Analyzer(const UnitSpec& spec, const Timing& timing, CommandLog& log)
    : UsbDevice(spec.serial, timing, log), spec_(spec), model_(spec.serial, spec.type),
      receiver_(model_, spec.serial), replies_(kReplyQueueSize), stream_(kStreamQueueSize),
      samples_(2 * kBlockSamples), powerOn_(SteadyClock::now()), garbageSeed_(spec.serial * 2654435761ull + 1) {
    missingReplies_ = spec.faults.missingReplies;
    garbageReplies_ = spec.faults.garbageReplies;
    unknownFirmware_ = spec.faults.unknownFirmware;
    SetHeldElsewhere(spec.faults.heldElsewhere);
    ovenWarmUntil_ = AfterSeconds(powerOn_, RealSecondsOf(spec.ovenWarmupMs, timing.clockScale));
    if (spec.timebaseCorrection != 0.0) std::memcpy(&userArea_[8], &spec.timebaseCorrection, sizeof(double));
}

std::string Analyzer::Description(int channel) const { return channel == kStreamChannel ? "Tarven Works A" : "Tarven Works B"; }

std::string Analyzer::SerialText(int channel) const {
    char text[16];
    std::snprintf(text, sizeof text, "%08u%c", serial_, channel == kStreamChannel ? 'A' : 'B');
    return text;
}

std::string Analyzer::FirmwareString() const {
    // Version, then the type digit at index 8 and the option digit at index 10.
    const bool orsk = model_.UnitFamily() == Family::Orsk;
    char type = orsk ? '3' : static_cast<char>('0' + spec_.type);
    char option = spec_.onDeviceCalibration ? '1' : '0';
    if (spec_.type == 3) option = '0';
    if (spec_.type == 4 && !spec_.onDeviceCalibration) option = '2';
    if (unknownFirmware_ != 0) type = '?';
    char text[16];
    std::snprintf(text, sizeof text, "%s%c.%c.07", orsk ? "v3.02.11" : "v2.15.03", type, option);
    return text;
}

const CalibrationImage& Analyzer::Calibration() {
    std::lock_guard<std::mutex> lock(mutex_);
    return CalibrationLocked();
}

const CalibrationImage& Analyzer::CalibrationLocked() {
    if (!calibration_) calibration_ = std::make_unique<CalibrationImage>(BuildFactoryCalibration(model_));
    return *calibration_;
}

void Analyzer::SetGenerator(const GeneratorState& state) {
    std::lock_guard<std::mutex> lock(mutex_);
    generator_ = std::make_unique<GeneratorState>(state);
    injected_.clear();
    if (state.frequency > 0.0) injected_.push_back(SignalAtAnalyzer(state.spec, state.frequency, state.code));
}

void Analyzer::SetStalled(bool stalled) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        spec_.faults.stalled = stalled;
        // A stall that ends lets the stream go on from now, not with a backlog.
        if (!stalled && timing_.realtime) {
            modeStart_ = SteadyClock::now();
            blocksDone_ = 0;
        }
    }
    arrived_.notify_all();
}

void Analyzer::DropStreamBytes(uint64_t offset, uint64_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    byteFaults_.push_back({streamPosition_ + offset, streamPosition_ + offset + count, true});
}

void Analyzer::CorruptStreamBytes(uint64_t offset, uint64_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    byteFaults_.push_back({streamPosition_ + offset, streamPosition_ + offset + count, false});
}

void Analyzer::LoseFrameHeaders(int count) {
    std::lock_guard<std::mutex> lock(mutex_);
    program_.lostHeaders = count;
}

void Analyzer::WrongSizeFrames(int count) {
    std::lock_guard<std::mutex> lock(mutex_);
    program_.wrongSizeFrames = count;
}

void Analyzer::SetReplyFaults(int missing, int garbage) {
    std::lock_guard<std::mutex> lock(mutex_);
    missingReplies_ = missing;
    garbageReplies_ = garbage;
}

void Analyzer::SetUnknownFirmware(int count) {
    std::lock_guard<std::mutex> lock(mutex_);
    unknownFirmware_ = count;
}

void Analyzer::SetOvenWarming(double instrumentMs) {
    std::lock_guard<std::mutex> lock(mutex_);
    ovenWarmUntil_ = AfterSeconds(SteadyClock::now(), RealSecondsOf(instrumentMs, timing_.clockScale));
}

void Analyzer::SetOvenCurrent(double milliamps) {
    std::lock_guard<std::mutex> lock(mutex_);
    spec_.ovenCurrent = milliamps;
}

void Analyzer::SetReference(bool present) {
    std::lock_guard<std::mutex> lock(mutex_);
    spec_.reference = present;
}

void Analyzer::SetTemperature(double celsius) {
    std::lock_guard<std::mutex> lock(mutex_);
    spec_.temperature = celsius;
}

uint64_t Analyzer::LostBlocks() {
    std::lock_guard<std::mutex> lock(mutex_);
    return lostBlocks_;
}

// ---- traffic -------------------------------------------------------------

void Analyzer::OnWrite(int channel, const uint8_t* data, uint32_t count, TimePoint now) {
    if (channel != kCommandChannel) return; // the stream channel takes no commands
    log_.AddWire(serial_, data, count);
    for (uint32_t i = 0; i < count; ++i) {
        if (!decoder_.Feed(data[i], frame_)) continue;
        log_.AddCommand(serial_, frame_);
        Execute(frame_, now);
    }
}

size_t Analyzer::Pending(int channel, TimePoint now, size_t wanted) {
    if (channel == kCommandChannel) return replies_.Size();
    Materialize(now, wanted);
    return stream_.Size();
}

size_t Analyzer::Waiting(int channel, TimePoint now) {
    if (channel == kCommandChannel) return replies_.Size();
    Materialize(now, 0);
    size_t waiting = stream_.Size();
    if (!timing_.realtime && !spec_.faults.stalled && !Unpaced(now))
        waiting += static_cast<size_t>(std::min<uint64_t>(program_.RemainingBytes(), stream_.Free()));
    return waiting;
}

size_t Analyzer::Take(int channel, uint8_t* out, size_t count) {
    return channel == kCommandChannel ? replies_.Pop(out, count) : stream_.Pop(out, count);
}

TimePoint Analyzer::NextArrival(int channel, TimePoint now) {
    if (channel == kCommandChannel || !timing_.realtime || spec_.faults.stalled) return TimePoint::max();
    switch (program_.Peek()) {
        case StreamProgram::Next::Nothing: return TimePoint::max();
        case StreamProgram::Next::Bytes: return now;
        case StreamProgram::Next::Block: return Unpaced(now) ? TimePoint::max() : std::max(now, NextBlockDue());
    }
    return TimePoint::max();
}

bool Analyzer::Unpaced(TimePoint now) const {
    return program_.CurrentMode() == StreamProgram::Mode::Gated && generator_ && now >= generator_->unplugAt;
}

void Analyzer::OnPurge(int channel, uint32_t mask) {
    if (!(mask & 1)) return;
    if (channel == kCommandChannel) replies_.Clear();
    else stream_.Clear();
}

void Analyzer::OnPortCycle(TimePoint now) {
    fw_ = FirmwareState();
    decoder_.Reset();
    replies_.Clear();
    stream_.Clear();
    program_.Stop();
    byteFaults_.clear();
    modeStart_ = now;
}

double Analyzer::SampleRate() const { return fw_.sampleClock == 1 ? kAlternateSampleRate : kSampleRate; }

TimePoint Analyzer::NextBlockDue() const {
    return AfterSeconds(modeStart_, (blocksDone_ + 1) * kBlockSamples / SampleRate());
}

void Analyzer::BeginStreamMode(TimePoint now) {
    modeStart_ = now;
    blocksDone_ = 0;
    if (timing_.realtime) sampleIndex_ = static_cast<uint64_t>(SecondsBetween(powerOn_, now) * SampleRate());
}

void Analyzer::PushStream(const uint8_t* data, size_t count) {
    if (byteFaults_.empty()) {
        stream_.Push(data, count);
        streamPosition_ += count;
        return;
    }
    for (size_t i = 0; i < count; ++i, ++streamPosition_) {
        uint8_t b = data[i];
        bool drop = false;
        for (const auto& f : byteFaults_) {
            if (streamPosition_ < f.from || streamPosition_ >= f.to) continue;
            if (f.drop) drop = true;
            else b ^= 0xA5;
        }
        if (!drop) stream_.Push(&b, 1);
    }
    byteFaults_.erase(std::remove_if(byteFaults_.begin(), byteFaults_.end(),
                                     [this](const ByteFault& f) { return f.to <= streamPosition_; }),
                      byteFaults_.end());
}

void Analyzer::Materialize(TimePoint now, size_t wanted) {
    if (spec_.faults.stalled) return;
    for (;;) {
        const auto next = program_.Peek();
        if (next == StreamProgram::Next::Nothing) return;
        if (next == StreamProgram::Next::Bytes) {
            if (!timing_.realtime && stream_.Size() >= wanted) return;
            if (stream_.Free() < 4096) return;
            program_.TakeBytes(bytes_);
            PushStream(bytes_.data(), bytes_.size());
            continue;
        }
        if (Unpaced(now)) return;
        int step;
        if (timing_.realtime) {
            if (NextBlockDue() > now) return;
            if (stream_.Free() < kBlockBytes) {
                // The host fell behind: the unit's FIFO overflows and the block is lost.
                program_.TakeBlock(&step);
                ++blocksDone_;
                ++lostBlocks_;
                sampleIndex_ += kBlockSamples;
                continue;
            }
        } else if (stream_.Size() >= wanted || stream_.Free() < kBlockBytes) {
            return;
        }
        const bool gated = program_.CurrentMode() == StreamProgram::Mode::Gated;
        program_.TakeBlock(&step);
        scene_.assign(spec_.signals.begin(), spec_.signals.end());
        FrontEnd fe;
        if (gated) {
            fe = GatedFrontEnd(step);
        } else {
            fe = step < 0 ? FrontEndOf(fw_, spec_.type) : HopFrontEnd(fw_, spec_.type, program_.HopLo(step), model_.Crossover());
            scene_.insert(scene_.end(), injected_.begin(), injected_.end());
        }
        if (fe.selfTest) {
            SignalSpec source;
            source.frequency = kSelfTestFrequency;
            source.level = SelfTestLevel(model_, spec_.temperature);
            scene_.push_back(source);
        }
        const double rendering = ThreadCpuSeconds();
        receiver_.Render(fe, scene_, spec_.noiseFloor, spec_.temperature, sampleIndex_, samples_.data());
        PushStream(reinterpret_cast<const uint8_t*>(samples_.data()), kBlockBytes);
        AddRenderCpu(ThreadCpuSeconds() - rendering);
        ++renderedBlocks;
        ++blocksDone_;
        sampleIndex_ += kBlockSamples;
    }
}

double Analyzer::RenderCpuSeconds() { return 1e-9 * static_cast<double>(renderCpuNs.load()); }

int64_t Analyzer::RenderedBlocks() { return renderedBlocks.load(); }

// ---- firmware ------------------------------------------------------------

void Analyzer::Reply(std::vector<uint8_t> bytes) {
    if (missingReplies_ != 0) {
        if (missingReplies_ > 0) --missingReplies_;
        return;
    }
    if (garbageReplies_ != 0) {
        if (garbageReplies_ > 0) --garbageReplies_;
        for (auto& b : bytes) {
            garbageSeed_ = garbageSeed_ * 6364136223846793005ull + 1442695040888963407ull;
            b = static_cast<uint8_t>(garbageSeed_ >> 56);
        }
    }
    replies_.Push(bytes.data(), bytes.size());
}

void Analyzer::WriteSynthesizer(uint32_t word) {
    switch (word & 7) {
        case 0:
            fw_.integer = static_cast<int>((word >> 15) & 0xFFFF);
            fw_.fraction = static_cast<int>((word >> 3) & 0xFFF);
            break;
        case 1:
            fw_.modulus = static_cast<int>((word >> 3) & 0xFFF);
            break;
        case 4:
            fw_.dividerLog2 = static_cast<int>((word >> 20) & 7);
            break;
        default:
            break; // charge pump and control words: no effect on the frequency
    }
}

void Analyzer::ExecuteOscillator(const std::vector<uint8_t>& p) {
    if (model_.UnitFamily() != Family::Orsk) return; // the 4.4 GHz family has no oven oscillator
    auto word = [](unsigned v) {
        return std::vector<uint8_t>{static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)};
    };
    switch (At(p, 1)) {
        case 'j':
            Reply({0x00, 0x01});
            break;
        case 'a':
            Reply(word(static_cast<unsigned>(std::lround(std::max(spec_.ovenCurrent, 0.0) / 0.1611))));
            break;
        case 'x':
            Reply(word(SteadyClock::now() < ovenWarmUntil_ ? 250 : 60));
            break;
        case 'f':
            fw_.ocxoDac = static_cast<uint16_t>(Word16(p, 2));
            break;
        case 'u':
            if (spec_.type == 4 && spec_.voltageOption)
                Reply(word(static_cast<unsigned>(std::lround(spec_.voltage / (0.0009765625 * 3.3 * 2.0)))));
            break;
        default:
            break;
    }
}

void Analyzer::Execute(const std::vector<uint8_t>& p, TimePoint now) {
    if (p.empty()) return;
    switch (p[0]) {
        case 'A': {
            const int v = At(p, 1);
            if (v <= 30) fw_.atten = v;
            else if (v >= 65 && v <= 125) fw_.ifAtten = v - 65;
            else if (v == 131 || v == 135 || v == 138 || v == 142) fw_.orskPath = (v >= 138 ? 2 : 0) + ((v == 135 || v == 142) ? 1 : 0);
            break;
        }
        case 'B': {
            auto table = DetectorSweep(Word16(p, 1), Word16(p, 3));
            Reply(std::move(table));
            break;
        }
        case 'C': {
            const int v = At(p, 1);
            if (v == 0) fw_.referenceOutput = fw_.externalReference = false;
            else if (v == 1) fw_.referenceOutput = true;
            else if (v == 2) Reply({static_cast<uint8_t>(spec_.reference ? 1 : 0)});
            else if (v == 3) fw_.externalReference = true;
            else if (v == 8 || v == 9) fw_.sampleClock = v - 8;
            break;
        }
        case 'D':
            fw_.outboard = At(p, 1);
            break;
        case 'E':
            if (At(p, 1) == 0xFF && At(p, 2) == 0x01) {
                const auto& unit = CalibrationLocked().unitBlock;
                const size_t address = static_cast<size_t>(Word16(p, 3));
                std::vector<uint8_t> group(4, 0xFF);
                for (size_t i = 0; i < 4; ++i)
                    if (address + i < unit.size()) group[i] = unit[address + i];
                Reply(std::move(group));
            } else if (At(p, 1) == 0xF1 && At(p, 2) == 0xA5 && At(p, 3) == 0x03) {
                std::vector<uint8_t> data{0xA5, 0x5A, 0xF1, At(p, 4)};
                const auto payload = BulkPayload(CalibrationLocked(), At(p, 4) == 0x8D);
                data.insert(data.end(), payload.begin(), payload.end());
                BeginStreamMode(now);
                program_.StartBulk(std::move(data));
            }
            break;
        case 'F':
            fw_.filter = At(p, 1);
            break;
        case 'G':
            fw_.gateStep = Word16(p, 1);
            fw_.gateFirst = Word16(p, 3);
            break;
        case 'I':
            if (At(p, 1) == 0x06) fw_.gainA = At(p, 2);
            else if (At(p, 1) == 0x0C) fw_.gainB = At(p, 2);
            break;
        case 'K':
            if (spec_.type != 1) {
                const unsigned raw = static_cast<unsigned>(std::lround(spec_.temperature * 16.0)) & 0x1FFF;
                Reply({static_cast<uint8_t>(raw >> 8), static_cast<uint8_t>(raw)});
            }
            break;
        case 'L':
            WriteSynthesizer(static_cast<uint32_t>(At(p, 1)) << 24 | At(p, 2) << 16 | At(p, 3) << 8 | At(p, 4));
            break;
        case 'M':
            fw_.preamp = At(p, 1) != 0;
            break;
        case 'N':
            if (fw_.gatedOutput) {
                StartGatedSweep(Word16(p, 1), Word16(p, 3), now);
            } else {
                BeginStreamMode(now);
                program_.StartHops(Word16(p, 1), Word16(p, 3));
            }
            break;
        case 'O':
            fw_.selfTestSource = At(p, 1) == 1;
            fw_.gatedOutput = At(p, 1) == 2;
            break;
        case 'R':
            ExecuteOscillator(p);
            break;
        case 'S':
            BeginStreamMode(now);
            program_.StartCapture(At(p, 1));
            break;
        case 'T':
            BeginStreamMode(now);
            program_.StartStream();
            break;
        case 'U':
            if ((spec_.type == 2) && spec_.voltageOption) {
                const unsigned raw = static_cast<unsigned>(std::lround(spec_.voltage / (0.0009765625 * 3.3 * 2.0)));
                Reply({static_cast<uint8_t>(raw >> 8), static_cast<uint8_t>(raw)});
            }
            break;
        case 'V': {
            const std::string text = FirmwareString();
            if (unknownFirmware_ > 0) --unknownFirmware_;
            Reply(std::vector<uint8_t>(text.begin(), text.end()));
            break;
        }
        case 'X': {
            const int count = At(p, 1);
            std::vector<FirmwareState::Segment> segments(fw_.segments.begin(), fw_.segments.begin() + count);
            BeginStreamMode(now);
            program_.StartFrames(segments, At(p, 2));
            break;
        }
        case 'Y': {
            auto& s = fw_.segments[At(p, 1)];
            s.stepsMinusOne = At(p, 2);
            s.startStep = Word16(p, 3);
            break;
        }
        case 'Z':
            if (At(p, 1) == '2') fw_.crossoverWord = static_cast<uint16_t>(Word16(p, 2));
            else if (At(p, 1) == '3') fw_.clockShift = At(p, 2);
            break;
        case '3':
            program_.Stop();
            break;
        default:
            break;
    }
}

// ---- gated sweeps ----------------------------------------------------------

namespace {
// The gate window's step w puts the LO at (w + 54) x 200 kHz: RF w x 200 kHz +
// 105.6 kHz lands in the middle of the samples.
constexpr int kGateLoOffsetSteps = 54;
}  // namespace

void Analyzer::StartGatedSweep(int first, int last, TimePoint now) {
    // One block for each point of the generator's sweep, paced by it; the
    // window goes on for its whole length, `gateStep` blocks per LO step and
    // `gateFirst` fewer in the first, and one more block at the end.
    gateLow_ = std::min(first, last);
    gateHigh_ = std::max(first, last);
    const int steps = gateHigh_ - gateLow_ + 1;
    const int points = generator_ ? generator_->sweepPoints : 0;
    const int window = fw_.gateStep > 0 ? steps * fw_.gateStep - fw_.gateFirst + 1 : steps;
    BeginStreamMode(now);
    program_.StartGated(std::max(points, window));
}

FrontEnd Analyzer::GatedFrontEnd(int point) {
    int w = gateLow_ + point / std::max(fw_.gateStep, 1);
    if (generator_ && generator_->sweepPoints > 0) {
        const size_t i = static_cast<size_t>(std::min(point, generator_->sweepPoints - 1));
        const double f = generator_->sweepStart + i * generator_->sweepStep;
        scene_.push_back(SignalAtAnalyzer(generator_->spec, f, generator_->pointCodes[i]));
        // The LO follows the generator: the window step whose middle lies nearest.
        w = static_cast<int>(std::lround((f - (kGateLoOffsetSteps * kHopStep - kSampleRate * 22.0)) / kHopStep));
    }
    w = std::clamp(w, gateLow_, gateHigh_);
    return HopFrontEnd(fw_, spec_.type, (w + kGateLoOffsetSteps) * kHopStep, model_.Crossover());
}

std::vector<uint8_t> Analyzer::DetectorSweep(int first, int last) {
    // The unit steps its LO from `first` to `last` MHz by 3 MHz and reads its
    // detector, which sits at its own IF, at each point.
    const int n = std::max(0, (last - first) / 3);
    std::vector<uint8_t> table(2 * static_cast<size_t>(n), 0);
    const double t = spec_.temperature;
    const double ifDetector = model_.DetectorIf();
    const bool orsk = model_.UnitFamily() == Family::Orsk;
    // The IF attenuator's high settings switch the detector to its sensitive range.
    const bool sensitiveRange = fw_.ifAtten >= (spec_.type == 4 ? 10 : 25);
    scene_.assign(spec_.signals.begin(), spec_.signals.end());
    scene_.insert(scene_.end(), injected_.begin(), injected_.end());
    auto gainAt = [&](double f) {
        if (orsk) return model_.DetectorGainDb(f, fw_.atten, sensitiveRange, t);
        // The 4.4 GHz family's detector follows its high IF path at gain index 1.
        FrontEnd fe = ModelFrontEnd(model_, f, 1, true);
        fe.atten = fw_.atten;
        fe.preamp = spec_.type == 2 && fw_.preamp;
        return model_.PathGainDb(fe, f, 0.0, t);
    };
    for (int i = 0; i < n; ++i) {
        const double lo = (first + 3.0 * i) * 1e6;
        // Noise of both sides of the LO through the detector's filter.
        const double noiseBandwidth = 2.0 * UnitModel::DetectorNoiseBandwidth();
        double power = std::pow(10.0, (spec_.noiseFloor + 10.0 * std::log10(noiseBandwidth) + gainAt(lo + ifDetector)) / 10.0);
        for (const auto& s : scene_) {
            const double offset = std::fabs(std::fabs(s.frequency - lo) - ifDetector);
            if (offset > 20e6) continue;
            power += std::pow(10.0, (s.level + gainAt(s.frequency) + UnitModel::DetectorBandDb(offset)) / 10.0);
        }
        const double db = 10.0 * std::log10(power);
        int code;
        if (orsk) {
            code = UnitModel::DetectorCode(db, t);
        } else {
            // A log detector of 0.134 dB per code, bottoming out 78 dB below full scale.
            const double floored = 10.0 * std::log10(std::pow(10.0, db / 10.0) + std::pow(10.0, -7.8));
            code = std::clamp(static_cast<int>(std::lround((floored + 80.0) / 0.13427734375)), 0, 4095);
        }
        table[2 * i] = static_cast<uint8_t>(code >> 8);
        table[2 * i + 1] = static_cast<uint8_t>(code);
    }
    return table;
}

}  // namespace qorsim
