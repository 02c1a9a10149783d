// The command set of AnalyzerLink: each operation's payload, its pause and
// the parsing of its reply. Framing and the stream are in analyzer_link.cpp.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "analyzer_link.h"
#include "os.h"

namespace qor {
namespace {

constexpr double kVcoLow = 2.2e9;
constexpr double kLoStepHz = 200000.0;  // one hardware step of the LO
constexpr double kDividedBelowHz = 1.499e8;

// The clock trim of the 12.4 GHz B units is one setting of the process, not
// of a device: it is sent only when it changes, whichever unit asks.
std::atomic<int> clockShift{0};

// floor(x + 0.5) as an int, held to the int range.
int RoundHalfUp(double x) { return static_cast<int>(std::clamp(std::floor(x + 0.5), -2e9, 2e9)); }

}  // namespace

void AnalyzerLink::InitAdc() {
    static constexpr uint8_t kSequence[5][2] = {{0x00, 0x75}, {0x38, 0x03}, {0x00, 0x74}, {0x00, 0x70}, {0x38, 0x00}};
    for (const auto& reg : kSequence) {
        WriteRegister(reg[0], reg[1]);
        os::SleepMs(150);
    }
}

// The synthesizer word of modulus 100.
void AnalyzerLink::RestoreSynthModulus() { Command({'L', 0x08, 0x00, 0x83, 0x21}); }

// The four frames of a tuning: the synthesizer's own output divider, the
// outboard divider, the modulus word and the integer/fraction word.
void AnalyzerLink::SendSynthWords(int synthDividerLog2, int outboardDivider, int integer, int fraction,
                                  int modulus) {
    Command({'L', 0x00, LowByte(synthDividerLog2 * 16 + 0x86), 0x41, 0xBC});
    Command({'D', LowByte(outboardDivider)});
    Command({'L', 0x08, 0x00, LowByte(modulus / 32 + 0x80), LowByte(modulus % 32 * 8 + 1)});
    Command({'L', 0x00, LowByte(integer / 2), LowByte((integer % 2 ? 0x80 : 0) + fraction / 32),
             LowByte(fraction % 32 * 8)});
}

void AnalyzerLink::ProgramSynth(int integer, int fraction, int modulus, int dividerLog2) {
    SendSynthWords(dividerLog2, 0x04, integer, fraction, modulus);
}

// Below 150 MHz the division is shared between the synthesizer's divider
// (`s`) and the outboard divider of "D" (`d`, at most 3).
void AnalyzerLink::ProgramSynthDivided(int integer, int fraction, int modulus, int dividerLog2) {
    const int r = dividerLog2 - 3;
    int d = 0;
    int s = 1;
    if (r > 1) {
        while (d + s < r) {
            if (d < 3)
                ++d;
            else
                ++s;
        }
    }
    SendSynthWords(s, d, integer, fraction, modulus);
}

void AnalyzerLink::TuneLO(double frequency) {
    int dividerLog2 = 0;
    double x = frequency;
    while (x > 0.0 && x < kVcoLow && dividerLog2 < 40) {
        x *= 2.0;
        ++dividerLog2;
    }
    const int integer = static_cast<int>(std::clamp(std::floor(x / 1e7), -1e9, 1e9));
    const int fraction = static_cast<int>(std::clamp(std::floor((x - integer * 1e7) / 100000.0), -1e9, 1e9));
    constexpr int kModulus = 100;
    if (frequency > kDividedBelowHz)
        ProgramSynth(integer, fraction, kModulus, dividerLog2);
    else
        ProgramSynthDivided(integer, fraction, kModulus, dividerLog2);
}

void AnalyzerLink::SetGainRegisters(int a, int b) {
    Command({'I', 0x06, LowByte(a)});
    Command({'I', 0x0C, LowByte(b)});
}

void AnalyzerLink::SetGainIndex(int gain) {
    if (gain == 1) {
        SetGainRegisters(0, 0);
    } else if (gain == 2) {
        SetGainRegisters(0, 128);
    } else {
        SetGainRegisters(128, 0);
    }
}

void AnalyzerLink::SetAttenuation(double dB) { Command({'A', LowByte(RoundHalfUp(dB / family.AttenStepDb()))}); }

void AnalyzerLink::SetSelfTestSource(bool on) { Command({'O', static_cast<uint8_t>(on ? 0x01 : 0x00)}); }

void AnalyzerLink::SetDividerFour() { Command({'D', 0x04}); }

bool AnalyzerLink::SelectExternalReference() {
    if (referenceLocked) return true;
    Command({'C', 0x02});
    uint8_t found = 0;
    ReadReply(&found, 1);
    if (found == 0) return false;
    Command({'C', static_cast<uint8_t>(family.IsOrsk() ? 0x03 : 0x01)}, 250);
    referenceLocked = true;
    return true;
}

void AnalyzerLink::EnableReferenceOutput() {
    if (referenceLocked) return;
    Command({'C', 0x01}, 250);
    referenceLocked = true;
}

void AnalyzerLink::ReleaseReference() { Command({'C', 0x00}, 250); }

void AnalyzerLink::SelectSampleClock(int n) {
    Command({'C', LowByte(n + 8)}, 250);
    InitAdc();
}

float AnalyzerLink::ReadVoltage() {
    constexpr float kNoReading = 5.0f;
    if (!voltageReadout) return kNoReading;
    if (family.Is(DeviceTypeOrskB))
        Command({'R', 'u'});
    else
        Command({'U', 0x00});
    uint8_t reply[2] = {};
    if (ReadReply(reply, sizeof reply) == 0) return kNoReading;
    // A 10-bit reading against 3.3 V, behind a divider of 2.
    return static_cast<float>((reply[0] * 256 + reply[1]) * 0.0009765625 * 3.3 * 2.0);
}

void AnalyzerLink::SetPathFilter(int a, int band) {
    if (family.IsOrsk())
        SetOrskFilter(band, a);
    else
        Command({'F', LowByte(a)});
}

void AnalyzerLink::SetOrskFilter(int band, int a) {
    const int k = band <= 0 ? 0 : band == 1 ? 1 : band <= 3 ? 2 : 3;
    Command({'F', LowByte(a * 16 + 8 + k)});
}

void AnalyzerLink::SetOrskPath(int path) {
    if (path == orskPath) return;
    Command({'A', LowByte(((path & 2) ? 138 : 131) + ((path & 1) ? 4 : 0))}, 50);
    orskPath = path;
}

void AnalyzerLink::ReleaseSweepPath() {
    orskPath = kPathUnknown;
    if (family.Is(DeviceTypeOrskB)) SetClockShift(0);
}

void AnalyzerLink::SelectDetectorPath() {
    constexpr int kDetectorPath = 3;
    constexpr int kDetectorBand = 1;
    constexpr int kDetectorIfFlag = 2;
    SetOrskPath(kDetectorPath);
    SetOrskFilter(kDetectorBand, kDetectorIfFlag);
}

void AnalyzerLink::Park() {
    constexpr double kParkFrequency = 4e9;
    constexpr int kParkStep = 20000;  // LO index of 4 GHz
    TuneLO(kParkFrequency);
    if (family.Is(DeviceTypeOrskB)) SetClockShift(0);
    SetGateWindow(kParkStep, kParkStep);
    if (WaitForStream(kBlockBytes, 100, 1)) DropStreamBytes(kBlockBytes);
}

DWORD AnalyzerLink::ReadCalPage(int address, uint8_t out[4], uint32_t extraPauseMs) {
    Command({'E', 0xFF, 0x01, LowByte(address), HighByte(address)}, extraPauseMs);
    return ReadReply(out, 4);
}

void AnalyzerLink::ReadCalBulk(bool orskFamily) {
    const uint8_t payload[5] = {'E', 0xF1, 0xA5, 0x03, static_cast<uint8_t>(orskFamily ? 0x8D : 0x72)};
    SendPayload(payload, sizeof payload, nullptr, true);
}

void AnalyzerLink::ReadFirmwareString(char out[16]) {
    Command({'V'});
    Ft().SetTimeouts(commandChannel, 500, 500);
    std::memset(out, 0, 16);
    const DWORD received = ReadReply(out, 16);
    Ft().SetTimeouts(commandChannel, 5000, 5000);
    out[std::min<DWORD>(received, 15)] = '\0';
}

void AnalyzerLink::SetPreamp(bool on) {
    if (!family.Is(DeviceTypeVelmB)) return;  // the one type with a preamplifier
    Command({'M', static_cast<uint8_t>(on ? 0x01 : 0x00)});
    if (on) {
        SetAttenuation(10.0);
        os::SleepMs(50);
    }
}

float AnalyzerLink::ReadTemperature() {
    if (family.Is(DeviceTypeVelm)) return 0.0f;  // no sensor
    Command({'K', 0x00});
    uint8_t reply[2] = {};
    ReadReply(reply, sizeof reply);
    // A 13-bit two's complement count of 1/16 degree.
    const uint16_t raw = static_cast<uint16_t>((reply[0] & 0x1F) * 256 + reply[1]);
    return static_cast<float>(static_cast<int16_t>(static_cast<uint16_t>(raw << 3)) * 0.0078125);
}

void AnalyzerLink::LoadSweepSegment(int segment, int startStep, int stepsMinusOne) {
    Command({'Y', LowByte(segment), LowByte(stepsMinusOne), LowByte(startStep), HighByte(startStep)});
}

void AnalyzerLink::StartFrames(int segments, int blocks) {
    Command({'X', LowByte(segments), LowByte(blocks)});
    blocksPerStep = blocks;
    headerAhead_ = false;
}

void AnalyzerLink::SetSweepWindow(int first, int last) {
    if (family.Is(DeviceTypeVelm)) TuneLO(first * kLoStepHz);
    if (family.Is(DeviceTypeOrskB) && last > 20000 && first < 42500) {
        const int shift = (first / 107) % 2 == 0 ? 3 : 0;
        clockShift = shift;
        SetClockShift(shift);
    } else if (clockShift.exchange(0) != 0) {
        SetClockShift(0);
    }
    Command({'N', LowByte(first), HighByte(first), LowByte(last), HighByte(last)});
}

void AnalyzerLink::SetGateWindow(int windowFirst, int windowLast) {
    Command({'N', LowByte(windowFirst), HighByte(windowFirst), LowByte(windowLast), HighByte(windowLast)});
}

void AnalyzerLink::StartGatedSweep(int gateStep, int gateFirst) {
    Command({'O', static_cast<uint8_t>(gateStep != 0 ? 0x02 : 0x00)}, 25);
    Command({'G', LowByte(gateStep), HighByte(gateStep), LowByte(gateFirst), HighByte(gateFirst)});
}

void AnalyzerLink::StopGatedSweep() {
    Command({'O', 0x00}, 25);
    Command({'G', 0x00, 0x00, 0x00, 0x00});
    PurgeStream(FT_PURGE_RX | FT_PURGE_TX);
}

void AnalyzerLink::ReadOcxoStatus() {
    Command({'R', 'j'}, 25);
    uint8_t reply[2];
    ReadReply(reply, sizeof reply);  // read only to keep the replies in step
}

float AnalyzerLink::ReadOcxoCurrent() {
    Command({'R', 'a'}, 25);
    uint8_t reply[2] = {};
    ReadReply(reply, sizeof reply);
    return static_cast<float>((reply[0] * 256 + reply[1]) * 0.1611);
}

bool AnalyzerLink::ReadOcxoWarmup(int* raw) {
    Command({'R', 'x'}, 25);
    uint8_t reply[2] = {};
    ReadReply(reply, sizeof reply);
    const int value = reply[0] * 256 + reply[1];
    if (raw) *raw = value;
    return value > 65;
}

void AnalyzerLink::SetOcxoDac(int word) { Command({'R', 'f', LowByte(word), HighByte(word)}, 100); }

void AnalyzerLink::SetZ2(int word) { Command({'Z', '2', LowByte(word), HighByte(word)}); }

void AnalyzerLink::SetClockShift(int n) { Command({'Z', '3', LowByte(n)}); }

void AnalyzerLink::SetIFAttenLow() { Command({'A', static_cast<uint8_t>(family.Is(DeviceTypeOrskB) ? 65 : 75)}); }

void AnalyzerLink::SetIFAttenHigh() { Command({'A', static_cast<uint8_t>(family.Is(DeviceTypeOrskB) ? 85 : 105)}); }

DWORD AnalyzerLink::ReadSweepTable(int first, int last, uint8_t* out) {
    Command({'B', LowByte(first), HighByte(first), LowByte(last), HighByte(last)});
    const int steps = (last - first) / 3;
    if (steps <= 0) return 0;
    return ReadReply(out, static_cast<DWORD>(2 * steps));
}

void AnalyzerLink::TuneIFOutput(double frequency, double ifOffset, int inputAtten, int outputGain, int band) {
    LoTuning& a = plan->recordA;
    if (family.IsOrsk()) a.path = OrskPathForBand(band);
    plan->PlanTuning(frequency, ifOffset, band == 2 || band == 3, -1, a, band);
    if (family.IsOrsk()) SetOrskPath(a.path);
    ProgramSynth(a.integer, a.fraction, a.modulus, a.dividerLog2);
    SetOrskFilter(band, 3);
    Command({'A', LowByte(outputGain + 65)});
    Command({'A', LowByte(inputAtten)});
    ifOutputOn = true;
}

void AnalyzerLink::ReleaseIFOutput() {
    if (!ifOutputOn) return;
    ReleaseReference();
    ifOutputOn = false;
}

}  // namespace qor
