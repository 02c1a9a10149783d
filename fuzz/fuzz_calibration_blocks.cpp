// A unit's calibration with bytes changed anywhere (a corrupted cache file,
// a bad read that passed, a unit with a damaged memory) through both
// correction models: loading it and every lookup an engine makes stay
// defined, whatever the tables hold.
//
// Input: byte 0 picks the family and a temperature; then patches of four
// bytes: a 20-bit offset into the unit or table block, and the new value.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "calibration_store.h"
#include "corrections_orsk.h"
#include "corrections_velm.h"
#include "qorsim.h"

namespace {

struct Blocks {
    std::vector<uint8_t> unit = std::vector<uint8_t>(qor::CalibrationStore::kUnitBlockBytes);
    std::vector<uint8_t> table = std::vector<uint8_t>(qor::CalibrationStore::kTableBlockBytes);
};

// The factory calibration of a unit of each family, from the instrument.
const Blocks& Factory(bool orsk) {
    static const Blocks* const blocks = [] {
        static Blocks both[2];
        qorsim_load_bench_json(R"({"clock": "fast", "pacing": "immediate", "units": [
            {"serial": 31000002, "type": 2}, {"serial": 31000004, "type": 4}]})");
        for (int i = 0; i < 2; ++i) {
            qorsim_calibration_blocks(i ? 31000004 : 31000002, both[i].unit.data(),
                                      static_cast<int>(both[i].unit.size()), both[i].table.data(),
                                      static_cast<int>(both[i].table.size()));
        }
        return both;
    }();
    return blocks[orsk ? 1 : 0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const bool orsk = data[0] & 1;
    Blocks blocks = Factory(orsk);
    for (size_t at = 1; at + 4 <= size; at += 4) {
        const uint32_t offset = (data[at] | data[at + 1] << 8 | (data[at + 2] & 0x0F) << 16);
        std::vector<uint8_t>& block = data[at + 2] & 0x80 ? blocks.unit : blocks.table;
        block[offset % block.size()] = data[at + 3];
    }

    const qor::DeviceFamily family(orsk ? DeviceTypeOrskB : DeviceTypeVelmB);
    std::unique_ptr<qor::DeviceCorr> corr;
    if (orsk) corr = std::make_unique<qor::CorrectionsOrsk>(family, blocks.table.data(), blocks.unit.data());
    else corr = std::make_unique<qor::CorrectionsVelm>(family, blocks.table.data(), blocks.unit.data());
    corr->Load(nullptr);
    corr->temperature = -20.0 + (data[0] >> 1) * 0.8;
    corr->preampOn = data[0] & 2;

    const double top = orsk ? 12.4e9 : 4.4e9;
    volatile double sink = 0.0;
    int step = 0;
    for (double f = 1e5; f < top; f *= 1.37, ++step) {
        for (int att = 0; att < 4; ++att) {
            sink = sink + corr->GetCorrection(f, att, att % 3, att & 1, (att - 1.5) * 1e5, -1);
            const auto code = static_cast<uint16_t>((step * 97 + att * 311) % 1024);
            if (orsk) sink = sink + corr->DetectorPowerRatio(f, att, att & 1 ? 41 : 11, code, 0);
        }
        sink = sink + corr->BandOf(f);
    }
    int atten = 0, gain = 0;
    corr->SelectAttenGain(-10.0, -30.0, &atten, &gain);
    if (atten < 0 || atten > 3 || gain < 0 || gain > 2) __builtin_trap();
    return 0;
}
