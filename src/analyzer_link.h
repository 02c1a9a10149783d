// AnalyzerLink: the one door to the analyzer. The unit shows up as a
// dual-channel USB chip: channel A ("stream") carries the samples, channel B
// ("command") the framed commands and their short replies.
//
// Commands are SLIP-stuffed payloads of 1 to 5 bytes, ended by 0xC0, one
// FT_Write each, followed by a pause of commandDelay on the caller's thread.
// The unit never acknowledges: a command always counts as done, and a reply
// that does not come shows as zeros in the parsed value.
//
// Threads: the work buffer and the channel state are single, so one thread
// drives the link at a time: the API thread while no engine runs, else the
// engine's acquisition thread (the reader, where an engine has two). The
// compression mark alone is shared between an engine and the retrieval
// calls, hence atomic.
#ifndef QOR_ANALYZER_LINK_H
#define QOR_ANALYZER_LINK_H

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <utility>

#include "d2xx.h"
#include "device_family.h"
#include "ipp_types.h"
#include "tg_interface.h"
#include "tuning_plan.h"

namespace qor {

class AnalyzerLink {
public:
    static constexpr int kMaxUnits = 8;
    static constexpr int kSerialLength = 8;                    // digits of a unit's serial
    static constexpr int kBlockSamples = 512;                  // one hop of the unit
    static constexpr int kBlockBytes = 4 * kBlockSamples;      // 16-bit I and Q
    static constexpr int kStreamSamples = 4096;                // one block of the continuous stream
    static constexpr int kStreamBytes = 4 * kStreamSamples;
    static constexpr int kWorkBufferBytes = 65536;
    static constexpr uint32_t kCommandBaud = 46667;

    // On the process D2XX table, resolved when the link first reaches the
    // bus, not when the link is built (the device table is built at load).
    AnalyzerLink();
    explicit AnalyzerLink(const d2xx::Table& d2xx);  // on another one (tests)
    ~AnalyzerLink();
    AnalyzerLink(const AnalyzerLink&) = delete;
    AnalyzerLink& operator=(const AnalyzerLink&) = delete;

    // The tracking generator beside the unit: its own channel, attached on
    // request and kept until the link is destroyed.
    TGInterface tg;

    // ---- Channels ----------------------------------------------------------
    // The driver's device list is one for the whole process, and FT_Open
    // takes an index into it: a listing and the opens by its indices must
    // not interleave with another thread's listing. Every listing of the
    // bus (analyzers and generators) holds this lock.
    static std::mutex& DeviceListMutex();

    // Pairs the channels of the driver's list (the caller refreshed it and
    // gives its length in *channelCount; *pairCount comes in as 0). A unit
    // counts when its A channel is free and its B channel is listed; an A
    // channel whose B is missing keeps command index -1.
    void EnumerateChannels(int serials[kMaxUnits], int streamIndex[kMaxUnits], int commandIndex[kMaxUnits],
                           int* pairCount, int* channelCount);
    // Refreshes the driver's list and gives its length.
    DWORD RefreshDeviceList();
    // The complete units on the bus, in the driver's order; none with fewer
    // than 2 channels. The caller holds DeviceListMutex.
    int ListUnits(int serials[kMaxUnits], int streamIndex[kMaxUnits], int commandIndex[kMaxUnits]);
    // Lists the bus and opens the unit `serial` on the indices found, the
    // listing and the channel opens under DeviceListMutex.
    enum class OpenResult { Opened, NotListed, Failed };
    OpenResult OpenUnit(int serial);
    // Opens and configures both channels, drains the stream, resets the
    // synthesizer and the ADC (about 860 ms of pauses). True when the link is
    // open (also when it already was); a failed open leaves both channels closed.
    bool Open(int streamIndex, int commandIndex);
    bool IsOpen() const { return isOpen; }
    // Who the unit is, once the open sequence has read it: the family that
    // every type-dependent command follows, and whether the unit reads its
    // supply voltage. Forgets the first-LO path sent before.
    void Identify(DeviceFamily family, bool voltageReadout);
    const DeviceFamily& Family() const { return family; }
    TuningPlan& Plan() { return *plan; }
    // FT_Close of the stream channel, then the command channel; clears the
    // open mark and referenceLocked.
    void Close();
    // Re-enumerates the whole unit (FT_CyclePort on the stream channel); the
    // handles are dead afterwards and must be closed.
    void CyclePort();
    // The serial as the chip reports it, cut to 8 characters.
    void ReadSerialString(char out[16]);
    // The 16-byte user area of the chip's EEPROM, on the command channel.
    DWORD ReadUserArea(uint8_t data[16]);
    void WriteUserArea(const uint8_t data[16]);

    // ---- Framing and the stream (see the .cpp for each) ---------------------
    // One framed command of up to 5 payload bytes on `channel` (the command
    // channel when null), then the command pause unless `noDelay`.
    void SendPayload(const uint8_t* payload, int length, FT_HANDLE channel = nullptr, bool noDelay = false);
    // A triggered capture of `count` samples: complete, no sync word (the
    // unit did not start), or the samples did not arrive in `timeoutMs`.
    enum class Capture { Complete, TimedOut, NoSync };
    Capture CaptureBlock(Ipp64fc* out, int count, int timeoutMs);
    // `count` samples of the continuous stream; false when a block failed to come.
    bool CaptureStream(Ipp64fc* out, int count);
    // One block; false when it did not come in time.
    bool ReadSamples512(Ipp64fc* out);
    bool ReadSamples4096(Ipp64fc* out);
    void StartStream();
    void StopStream();
    // Reads and drops what the unit still sends (the rest of a torn
    // capture) until a look finds the stream quiet, for at most `limitMs`;
    // whether anything came.
    bool DrainStream(uint32_t limitMs);
    // Whether the stream channel still takes calls: an unplugged unit refuses them.
    bool StreamAnswers();
    // The sync word of the last stream start or frame header.
    const uint8_t* SyncWord() const { return syncWord; }
    // While an engine runs, its `running`: every wait for the stream gives up
    // as soon as it clears, so that a stop never waits for a stalled or slow
    // stream. Null: the waits run to their limits.
    void ReadWhile(const std::atomic<bool>* keepReading) { keepReading_ = keepReading; }
    // One frame of a hop program as its header announces it; a stop (see
    // ReadWhile) ends it at once, torn.
    struct FrameRead {
        enum Kind {
            Segment,    // the frame of segment `tag`, read whole into the caller's buffer
            OtherSize,  // a frame of segment `tag` but not of the size expected, dropped whole
            Torn,       // no header found, or a block missing: the frame is lost
        } kind;
        int tag;
    };
    FrameRead ReadFrame(Ipp64fc* out, int expectedSamples);
    // Reads the header that follows a frame, for the next ReadFrame to start
    // from: true when it is one, which proves that every byte of the frame
    // before it came (a lost byte moves the header out of its place).
    bool ReadHeaderAhead();
    // Reads on to the next frame header and puts it into the sync word;
    // false when none came.
    bool ResyncFrames();
    void PurgeStream(ULONG mask);
    DWORD StreamQueued();
    // One FT_Read of raw bytes on the stream channel; the count received.
    DWORD ReadStreamBytes(void* out, DWORD count);

    // ---- Commands ------------------------------------------------------------
    void WriteRegister(int address, int value);
    void InitAdc();
    void RestoreSynthModulus();
    void ProgramSynth(int integer, int fraction, int modulus, int dividerLog2);
    void ProgramSynthDivided(int integer, int fraction, int modulus, int dividerLog2);
    void TuneLO(double frequency);
    void SetGainRegisters(int a, int b);
    // The gain stages for a gain index: 1 the middle setting, 2 the most
    // gain, any other the least.
    void SetGainIndex(int gain);
    void SetAttenuation(double dB);
    // The input attenuator at step `steps` of the unit's family.
    void SetAttenSteps(int steps) { SetAttenuation(steps * family.AttenStepDb()); }
    void SetSelfTestSource(bool on);
    void SetDividerFour();
    bool SelectExternalReference();
    void EnableReferenceOutput();
    void ReleaseReference();
    bool ReferenceLocked() const { return referenceLocked; }
    void SelectSampleClock(int n);
    float ReadVoltage();
    void SetPathFilter(int a, int band);
    void SetOrskFilter(int band, int a);
    void SetOrskPath(int path);
    // What a sweep leaves behind: the first-LO path is forgotten (the next
    // SetOrskPath sends whatever it is) and a B unit of the 12.4 GHz family
    // takes its clock trim back.
    void ReleaseSweepPath();
    // The 12.4 GHz family's detector: the first-LO path of the lowest bands
    // and the band 1 filter with the detector's IF.
    void SelectDetectorPath();
    // Parks the LO at 4 GHz and ends a hop program there with one hop of its
    // own, whose block is dropped: between two hop programs.
    void Park();
    // One 4-byte word of the unit's calibration memory at byte `address`,
    // after the usual pause and `extraPauseMs`; the count received.
    DWORD ReadCalPage(int address, uint8_t out[4], uint32_t extraPauseMs = 0);
    // Asks for the calibration bulk (no pause); it arrives on the stream
    // channel, to be read with ReadStreamBytes.
    void ReadCalBulk(bool orskFamily);
    void ReadFirmwareString(char out[16]);
    void SetPreamp(bool on);
    float ReadTemperature();
    void LoadSweepSegment(int segment, int startStep, int stepsMinusOne);
    void StartFrames(int segments, int blocks);
    void SetSweepWindow(int first, int last);
    void SetGateWindow(int windowFirst, int windowLast);
    void StartGatedSweep(int gateStep, int gateFirst);
    void StopGatedSweep();
    void ReadOcxoStatus();
    float ReadOcxoCurrent();
    bool ReadOcxoWarmup(int* raw);
    void SetOcxoDac(int word);
    void SetZ2(int word);
    void SetClockShift(int n);
    void SetIFAttenLow();
    void SetIFAttenHigh();
    // Detector read-out of the LO sweep from `first` to `last` MHz in 3 MHz
    // steps: 2 bytes per step into `out`; the count received. A reply short of
    // bytes is the unit's way; a refused read (an unplugged unit) is marked
    // for CommandChannelFailed.
    bool CommandChannelFailed() const { return commandFailed_; }
    DWORD ReadSweepTable(int first, int last, uint8_t* out);
    // Holds the unit tuned for the IF output until ReleaseIFOutput.
    void TuneIFOutput(double frequency, double ifOffset, int inputAtten, int outputGain, int band);
    bool IFOutputOn() const { return ifOutputOn; }
    void ReleaseIFOutput();

    // Reads and clears the mark of an IF overload (a converter clipping in
    // some block read) seen since the last look.
    bool TakeCompressionMark() { return compressionFlag.exchange(false); }
    // While off, an overload leaves no mark at once: the engine carries it
    // with its results (TakeClipped) and marks it as it hands them out.
    void CountCompression(bool on) { countCompression_ = on; }
    // Whether a block read since the last call showed the converter
    // clipping (or samples out of step by a byte, as far from the truth),
    // marked or not; the reading thread's.
    bool TakeClipped() { return std::exchange(clippedSince_, false); }
    // Marks an overload for the next retrieval: a result handed out late
    // that was measured on clipped samples.
    void MarkCompression() { compressionFlag = true; }

private:
    static constexpr int32_t kPathUnknown = -1;  // the next SetOrskPath always sends

    DeviceFamily family;
    std::unique_ptr<TuningPlan> plan;  // on `family`
    std::atomic<bool> compressionFlag{false};
    FT_HANDLE commandChannel = nullptr;  // channel B
    FT_HANDLE streamChannel = nullptr;   // channel A
    bool isOpen = false;
    uint32_t commandDelay = 5;
    uint8_t* workBuffer;  // kWorkBufferBytes, 64-byte aligned
    uint8_t syncWord[4] = {};
    bool headerAhead_ = false;  // the sync word holds the next frame's header, already read
    int32_t blocksPerStep = 1;
    int32_t orskPath = kPathUnknown;
    bool referenceLocked = false;
    bool ifOutputOn = false;
    bool voltageReadout = false;
    const std::atomic<bool>* keepReading_ = nullptr;
    bool commandFailed_ = false;  // a read of the command channel was refused
    bool countCompression_ = true;
    bool clippedSince_ = false;

    // FT_Open of both channels, the stream channel with retries; false leaves both closed.
    bool OpenChannels(int streamIndex, int commandIndex);
    // Configures the open channels and brings the unit to a known state.
    void Setup();
    // Sends the payload and pauses commandDelay plus `extraPauseMs`.
    void Command(std::initializer_list<uint8_t> payload, uint32_t extraPauseMs = 0);
    DWORD ReadReply(void* out, DWORD count);
    void SendSynthWords(int synthDividerLog2, int outboardDivider, int integer, int fraction, int modulus);
    // Waits for `bytes` on the stream channel, polling every `pollMs`;
    // false when `limitMs` passed first or the engine is stopping.
    bool Stopping() const { return keepReading_ && !keepReading_->load(); }
    bool WaitForStream(DWORD bytes, uint32_t limitMs, uint32_t pollMs);
    // Reads and drops `bytes` from the stream channel in pieces of at most
    // one stream block.
    void DropStreamBytes(int64_t bytes);
    // Widens `samples` 16-bit I, Q pairs of workBuffer to full scale 1.0,
    // and marks compression when the block shows the converter clipping or
    // its samples out of step by a byte.
    void Widen(Ipp64fc* out, int samples);

    explicit AnalyzerLink(const d2xx::Table* d2xx);
    const d2xx::Table& Ft() const { return ft_ ? *ft_ : d2xx::Functions(); }

    const d2xx::Table* ft_;  // null: the process table
};

// Payload bytes of the command set: the low and high byte of a value.
inline uint8_t LowByte(int value) { return static_cast<uint8_t>(value & 0xFF); }
inline uint8_t HighByte(int value) { return static_cast<uint8_t>((value >> 8) & 0xFF); }

// Frames a command payload for the wire (0xC0 and 0xDB escaped, 0xC0 at the
// end) into `wire`, which has room for 2 x length + 1 bytes; the bytes written.
int FrameCommand(const uint8_t* payload, int length, uint8_t* wire);

// Decimal value of a serial string (at most 8 digits); 0 when it is empty or
// holds anything but digits.
int32_t DecimalSerial(const char* serial);

}  // namespace qor

#endif
