// The reads of calibration from the unit, and what Load tells the unit, on
// the scripted bus: every frame is checked as it is written.
#include <gtest/gtest.h>

#include <set>

#include "../link/link_fixture.h"
#include "cal_folder.h"
#include "cal_images.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
#include "loopback_http_server.h"
#include "qor_lib.h"

namespace {

using qor::test::Bytes;
using qor::test::LinkTest;

// The frame of a command as it goes on the wire: 0xC0 and 0xDB escaped, 0xC0 at the end.
Bytes Wire(const Bytes& payload) {
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

Bytes PageCommand(int address) {
    return Wire({'E', 0xFF, 0x01, static_cast<uint8_t>(address & 0xFF), static_cast<uint8_t>(address >> 8)});
}

Bytes Word(const std::vector<uint8_t>& memory, int address) {
    return Bytes(memory.begin() + address, memory.begin() + address + 4);
}

using CalReadTest = LinkTest;

TEST_F(CalReadTest, PageReadsTwiceAndRepairsGroupsThatDiffer) {
    const std::vector<uint8_t> memory = caltest::PatternBody(4096);
    const Bytes garbled = {1, 2, 3, 4};
    // Pass one: 0x0C0 garbled, 0x100 silent; pass two: 0x200 garbled, 0x100 and
    // 0x300 silent; 0x400 garbled alike in both passes, so it goes unnoticed.
    auto passOne = [&](int a) -> Bytes {
        if (a == 0x0C0 || a == 0x400) return garbled;
        if (a == 0x100) return {};
        return Word(memory, a);
    };
    auto passTwo = [&](int a) -> Bytes {
        if (a == 0x200 || a == 0x400) return garbled;
        if (a == 0x100 || a == 0x300) return {};
        return Word(memory, a);
    };
    for (int a = 0; a < 4096; a += 4) bus.Expect(PageCommand(a), passOne(a));
    for (int a = 0; a < 4096; a += 4) bus.Expect(PageCommand(a), passTwo(a));
    // The repairs, in address order; the one of 0x300 gets no answer and keeps pass two's filling.
    for (int a : {0x0C0, 0x100, 0x200, 0x300}) bus.Expect(PageCommand(a), a == 0x300 ? Bytes{} : Word(memory, a));

    std::vector<uint8_t> unit(4096, 0);
    qor::ReadCalPage(link, unit.data());
    EXPECT_TRUE(bus.ScriptDone());
    std::vector<uint8_t> expected = memory;
    std::fill_n(expected.begin() + 0x300, 4, 0x80);
    std::copy(garbled.begin(), garbled.end(), expected.begin() + 0x400);
    EXPECT_EQ(expected, unit);
}

TEST_F(CalReadTest, BulkSplitsTheAnswerIntoTheBlocksOfEachFamily) {
    const std::vector<uint8_t> velm = caltest::PatternBody(0x72000 + 4);
    bus.Expect(Wire({'E', 0xF1, 0xA5, 0x03, 0x72}), {}, velm);
    std::vector<uint8_t> unit(4096, 0), table(768000, 0xAB);
    qor::ReadCalBulk(link, unit.data(), table.data(), false);
    EXPECT_TRUE(std::equal(unit.begin(), unit.end(), velm.begin() + 4));
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 0x70000, velm.begin() + 4 + 4096));
    EXPECT_EQ(table[0x70000], 0xAB);  // the 4096 bytes behind the table are dropped

    std::vector<uint8_t> orsk = caltest::PatternBody(0x8D000 + 4 + 100);  // more than asked for
    std::reverse(orsk.begin(), orsk.end());
    bus.Expect(Wire({'E', 0xF1, 0xA5, 0x03, 0x8D}), {}, orsk);
    std::fill(unit.begin(), unit.end(), 0x5A);
    qor::ReadCalBulk(link, unit.data(), table.data(), true);
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 0x8D000, orsk.begin() + 4));
    EXPECT_EQ(unit, std::vector<uint8_t>(4096, 0x5A));
    EXPECT_EQ(Stream().size(), 100u) << "nothing read beyond the expected total";

    // A short answer fills what came and leaves the rest of the blocks.
    Stream().clear();
    const std::vector<uint8_t> answer = caltest::PatternBody(4 + 100000);
    bus.Expect(Wire({'E', 0xF1, 0xA5, 0x03, 0x8D}), {}, answer);
    std::fill(table.begin(), table.end(), 0xAB);
    qor::ReadCalBulk(link, unit.data(), table.data(), true);
    EXPECT_TRUE(std::equal(table.begin(), table.begin() + 100000, answer.begin() + 4));
    EXPECT_EQ(table[100000], 0xAB);
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

class FetchFromUnitTest : public LinkTest, protected caltest::CalibrationPlace {
protected:
    qor::CalibrationStore store;
};

TEST_F(FetchFromUnitTest, OnBoardUnitRereadsBothBlocksWhenTheTableFileIsMissing) {
    caltest::WriteWhole(File("00000042.qmi"), std::vector<uint8_t>(3128, 0x33));
    const std::vector<uint8_t> bulk = caltest::PatternBody(0x72000 + 4);
    bus.Expect(Wire({'E', 0xF1, 0xA5, 0x03, 0x72}), {}, bulk);
    ASSERT_EQ(qor::FetchCalibration(store, {42, 2, true}, &link), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(caltest::ReadWhole(File("00000042.qmi")), std::vector<uint8_t>(bulk.begin() + 4, bulk.begin() + 4 + 3128));
    EXPECT_EQ(caltest::ReadWhole(File("D00000042.bin")),
              std::vector<uint8_t>(bulk.begin() + 4 + 4096, bulk.begin() + 4 + 4096 + 458624));
}

TEST_F(FetchFromUnitTest, MissingUnitFileIsReadPageByPageWithoutDownload) {
    const std::vector<uint8_t> table = caltest::PatternBody(458624);
    caltest::WriteWhole(File("D00000042.bin"), table);
    const std::vector<uint8_t> memory = caltest::PatternBody(4096);
    for (int pass = 0; pass < 2; ++pass)
        for (int a = 0; a < 4096; a += 4) bus.Expect(PageCommand(a), Word(memory, a));
    ASSERT_EQ(qor::FetchCalibration(store, {42, 2, false}, &link), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(caltest::ReadWhole(File("00000042.qmi")), std::vector<uint8_t>(memory.begin(), memory.begin() + 3128));
    EXPECT_EQ(caltest::ReadWhole(File("D00000042.bin")), table);
}

}  // namespace
