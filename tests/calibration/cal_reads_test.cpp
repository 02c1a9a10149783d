// The reads of calibration from the unit, and what Load tells the unit, on
// the scripted bus: every frame is checked as it is written. What a fetch
// does when these reads fail is in fetch_test.
#include <gtest/gtest.h>

#include "../link/link_fixture.h"
#include "cal_images.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
#include "loopback_http_server.h"
#include "unit_script.h"

namespace {

using caltest::BulkCommand;
using caltest::Bytes;
using caltest::PatternBody;
using caltest::Wire;
using caltest::Word;
using qor::test::LinkTest;

using CalReadTest = LinkTest;

TEST_F(CalReadTest, PageReadsTwiceAndRepairsGroupsThatDiffer) {
    const std::vector<uint8_t> memory = PatternBody(4096);
    const Bytes garbled = {1, 2, 3, 4};
    // Read a third time: 0x0C0 garbled in pass one, 0x200 in pass two, 0x100
    // silent in both, 0x300 cut short in pass two. 0x400, garbled alike in
    // both passes, goes unnoticed.
    caltest::ExpectPages(
        bus,
        [&](int pass, int a) -> Bytes {
            if (a == 0x400 && pass < 2) return garbled;
            if ((a == 0x0C0 && pass == 0) || (a == 0x200 && pass == 1)) return garbled;
            if (a == 0x100 && pass < 2) return {};
            if (a == 0x300 && pass == 1) return Word(memory, a, 3);
            return Word(memory, a);
        },
        {0x0C0, 0x100, 0x200, 0x300});

    std::vector<uint8_t> unit(4096, 0);
    EXPECT_TRUE(qor::ReadCalPage(link, unit.data()));
    EXPECT_TRUE(bus.ScriptDone());
    std::vector<uint8_t> expected = memory;
    std::copy(garbled.begin(), garbled.end(), expected.begin() + 0x400);
    EXPECT_EQ(expected, unit);
}

TEST_F(CalReadTest, BulkSplitsTheAnswerIntoTheBlocksOfEachFamily) {
    const std::vector<uint8_t> velm = PatternBody(0x72000 + 4);
    bus.Expect(BulkCommand(false), {}, velm);
    std::vector<uint8_t> unit(4096, 0), table(768000, 0xAB);
    EXPECT_TRUE(qor::ReadCalBulk(link, unit.data(), table.data(), false));
    EXPECT_TRUE(std::equal(unit.begin(), unit.end(), velm.begin() + 4));
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 0x70000, velm.begin() + 4 + 4096));
    EXPECT_EQ(table[0x70000], 0xAB);  // the 4096 bytes behind the table are dropped

    std::vector<uint8_t> orsk = PatternBody(0x8D000 + 4 + 100);  // more than asked for
    std::reverse(orsk.begin(), orsk.end());
    bus.Expect(BulkCommand(true), {}, orsk);
    std::fill(unit.begin(), unit.end(), 0x5A);
    EXPECT_TRUE(qor::ReadCalBulk(link, unit.data(), table.data(), true));
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 0x8D000, orsk.begin() + 4));
    EXPECT_EQ(unit, std::vector<uint8_t>(4096, 0x5A));
    EXPECT_EQ(Stream().size(), 100u) << "nothing read beyond the expected total";
}

// Load of the 12.4 GHz family: the oven trim word of the tail, the crossover,
// then the oven's warm-up reading, which decides about the stored timebase.
TEST_F(CalReadTest, OrskLoadSendsOvenTrimAndCrossover) {
    caltest::Image table(768000);
    table.U16(caltest::orsk_table::kOcxoDac, 0x1234);
    table.U16(caltest::orsk_table::kTimebase, 32768 + 100);
    std::vector<uint8_t> unit(4096, 0);
    for (const auto& [warmup, factor] : {std::pair<Bytes, double>{{0x00, 0x41}, 1.0 + 100e-9}, {{0x00, 0x42}, 1.0}}) {
        qor::CorrectionsOrsk corr(qor::DeviceFamily(3), table.data(), unit.data());
        bus.Expect(Wire({'R', 'f', 0x34, 0x12}));
        bus.Expect(Wire({'Z', '2', 0x00, 0xA6}));  // 8.505 GHz: word 42496
        bus.Expect(Wire({'R', 'x'}), warmup);
        EXPECT_EQ(corr.Load(&link), 0);
        EXPECT_TRUE(bus.ScriptDone());
        EXPECT_DOUBLE_EQ(corr.timebaseFactor, factor);
    }
}

}  // namespace
