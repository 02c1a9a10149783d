// TGInterface: the one door to the tracking generator, a separate USB
// instrument beside the analyzer. It is one channel at 25000 baud that takes
// short framed commands and answers only reads of its 4096-byte calibration
// memory. The interface finds the generator by its description, opens the
// channel, gets the memory (from the cache file "<folder><serial>.tg" or from
// the generator itself), tells the family and the timebase factor from it,
// and turns frequencies and levels into commands (tg_synth.h for the codes).
//
// Life: attached by an explicit call, it stays attached, across the close of
// the analyzer too, until the owning link is destroyed (Detach: output off).
//
// Threads: the caller's thread drives it in every mode but the generator
// sweep, whose thread drives it then; the API refuses the set calls in that
// mode, which keeps two writers off the channel. Only `handle` is read
// across threads (is a generator attached), hence atomic.
#ifndef QOR_TG_INTERFACE_H
#define QOR_TG_INTERFACE_H

#include <atomic>
#include <cstdint>

#include "d2xx.h"
#include "qor_api.h"
#include "tg_synth.h"

namespace qor {

class TGInterface {
public:
    static constexpr uint32_t kBaud = 25000;

    TGInterface() = default;
    ~TGInterface() { Detach(); }
    TGInterface(const TGInterface&) = delete;
    TGInterface& operator=(const TGInterface&) = delete;

    // Finds and opens the first generator on the bus and loads its memory;
    // true when one is attached (also when it already was and is still there).
    bool Attach();
    // Turns the output off and closes the channel.
    void Detach();
    bool Attached() const { return handle.load() != nullptr; }

    // 0, 3 when the frequency or the level was held to the family's range,
    // -10 with no generator.
    qorStatus SetFrequencyAmplitude(double frequencyHz, double amplitudeDbm);
    // Passes a reference choice 0..2 on (12.4 GHz family only); -4 for others.
    qorStatus SetReference(int reference);
    int AmplitudeCode(double frequencyHz, double amplitudeDbm, int previous) const {
        return TgAmplitudeCode(Memory(), frequencyHz, amplitudeDbm, previous);
    }
    // List 0 or 1: the codes of a sweep's points at one level; SendAmplitudeList
    // loads it into the generator.
    void BuildAmplitudeList(int list, double amplitudeDbm, double start, double step, int points);
    void SendAmplitudeList(int list);
    const AmplitudeList& List(int list) const { return lists[list & 1]; }
    // The sweep the generator steps through by itself, paced by the analyzer.
    void ProgramSweep(double start, double step, int points);

    TgMemory Memory() const { return {eeprom, calibrated, isOrskTg}; }

    char serialText[9] = {};
    int32_t serial = 0;
    uint8_t eeprom[kTgMemoryBytes] = {};
    bool isOrskTg = false;
    double timebaseFactor = 1.0;  // applied to frequencies sent with "F"
    bool calibrated = false;
    double frequency = 0.0;  // last set, after holding
    double amplitude = 0.0;

private:
    void LoadCalibration();
    // Frames the first `n` bytes of `scratch` (a lone frame end for n below 1)
    // and pauses `pauseMs`.
    void SendCommand(int n, uint32_t pauseMs);
    void SendWord(char command, uint32_t word);
    const d2xx::Table& Ft() const { return d2xx::Functions(); }

    std::atomic<FT_HANDLE> handle{nullptr};  // null: no generator
    uint8_t scratch[8] = {};
    AmplitudeList lists[2];
};

}  // namespace qor

#endif
