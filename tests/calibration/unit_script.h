// The calibration reads as a unit on the scripted bus answers them: the
// frames of the page and bulk commands and what comes back to each.
#ifndef QOR_TESTS_CALIBRATION_UNIT_SCRIPT_H
#define QOR_TESTS_CALIBRATION_UNIT_SCRIPT_H

#include <cstdint>
#include <functional>
#include <vector>

#include "fake_d2xx.h"

namespace caltest {

using qor::test::Bytes;
using qor::test::FakeBus;

// A command as it goes on the wire: 0xC0 and 0xDB escaped, 0xC0 at the end.
inline Bytes Wire(const Bytes& payload) {
    Bytes wire;
    for (uint8_t b : payload) {
        if (b == 0xC0) {
            wire.insert(wire.end(), {0xDB, 0xDC});
        } else if (b == 0xDB) {
            wire.insert(wire.end(), {0xDB, 0xDD});
        } else {
            wire.push_back(b);
        }
    }
    wire.push_back(0xC0);
    return wire;
}

inline Bytes PageCommand(int address) {
    return Wire({'E', 0xFF, 0x01, static_cast<uint8_t>(address & 0xFF), static_cast<uint8_t>(address >> 8)});
}

inline Bytes BulkCommand(bool orsk) { return Wire({'E', 0xF1, 0xA5, 0x03, static_cast<uint8_t>(orsk ? 0x8D : 0x72)}); }

// The 4 bytes of `memory` at `address`, or the first `count` of them.
inline Bytes Word(const std::vector<uint8_t>& memory, int address, int count = 4) {
    return Bytes(memory.begin() + address, memory.begin() + address + count);
}

// The reply to a page command: pass 0 and 1 are the two passes over the
// block, pass 2 the third reads of groups that differed.
using PageAnswer = std::function<Bytes(int pass, int address)>;

// Both passes over the 4096-byte block, then the third reads of `repairs` in order.
inline void ExpectPages(FakeBus& bus, const PageAnswer& answer, const std::vector<int>& repairs = {}) {
    for (int pass = 0; pass < 2; ++pass)
        for (int a = 0; a < 4096; a += 4) bus.Expect(PageCommand(a), answer(pass, a));
    for (int a : repairs) bus.Expect(PageCommand(a), answer(2, a));
}

// A unit that answers every page command from `memory`.
inline void ExpectPages(FakeBus& bus, const std::vector<uint8_t>& memory) {
    ExpectPages(bus, [&memory](int, int a) { return Word(memory, a); });
}

}  // namespace caltest

#endif
