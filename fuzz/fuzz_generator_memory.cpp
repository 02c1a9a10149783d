// The tracking generator's calibration memory with bytes changed anywhere,
// through the code searches of both families and the amplitude lists of a
// sweep: every level at every frequency gets a code, and every list stays
// within its entries and covers its points.
//
// Input: byte 0 picks the family, the calibrated mark and the level; then
// patches of three bytes: a 12-bit offset into the memory and the new value.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qorsim.h"
#include "tg_synth.h"

namespace {

// The factory memory of a generator of each family, from the instrument.
const std::vector<uint8_t>& Factory(bool orsk) {
    static const std::vector<uint8_t>* const memories = [] {
        static std::vector<uint8_t> both[2];
        qorsim_load_bench_json(R"({"clock": "fast", "pacing": "immediate", "units": [],
            "generators": [{"serial": 31000007, "family": 1}, {"serial": 31000008, "family": 2}]})");
        for (int i = 0; i < 2; ++i) {
            both[i].resize(qor::kTgMemoryBytes);
            qorsim_generator_eeprom(i ? 31000008 : 31000007, both[i].data(), qor::kTgMemoryBytes);
        }
        return both;
    }();
    return memories[orsk ? 1 : 0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const bool orsk = data[0] & 1;
    std::vector<uint8_t> eeprom = Factory(orsk);
    for (size_t at = 1; at + 3 <= size; at += 3) {
        eeprom[(data[at] | (data[at + 1] & 0x0F) << 8) % eeprom.size()] = data[at + 2];
    }
    const qor::TgMemory memory{eeprom.data(), (data[0] & 2) == 0, orsk};
    // The levels the library asks for: qorSetTg and the sweeps hold them to -30..-10 dBm.
    const double amplitude = -30.0 + (data[0] >> 2) * (20.0 / 63.0);
    const double top = orsk ? 12.4e9 : 4.4e9;
    int previous = -1;
    for (double f = 1e5; f < top; f *= 1.21) previous = qor::TgAmplitudeCode(memory, f, amplitude, previous);

    qor::AmplitudeList list;
    const int points = 1 + data[0] * 4;
    qor::BuildAmplitudeList(list, memory, amplitude, 1e6, (top - 1e6) / points, points);
    if (list.length < 1 || list.length > qor::kTgListEntries) __builtin_trap();
    return 0;
}
