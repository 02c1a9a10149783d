// The reads of calibration from the unit, and what Load tells the unit, on
// the scripted bus: every frame is checked as it is written.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "../link/link_fixture.h"
#include "cal_folder.h"
#include "cal_images.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
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

constexpr const char* kUnitName = "00000042.qmi";
constexpr const char* kTableName = "D00000042.bin";

class FetchFromUnitTest : public LinkTest, protected caltest::CalibrationPlace {
protected:
    int Fetch(uint32_t type, bool onDevice) { return qor::FetchCalibration(store, {42, type, onDevice}, &link); }
    // A cache file of `length` bytes of `fill`; none for -1.
    void Place(const char* name, int length, uint8_t fill = 0x33) {
        std::filesystem::remove(File(name));
        if (length >= 0) caltest::WriteWhole(File(name), std::vector<uint8_t>(static_cast<std::size_t>(length), fill));
    }
    std::vector<uint8_t> Cached(const char* name) const { return caltest::ReadWhole(File(name)); }

    qor::CalibrationStore store;
};

// Whichever file is missing or cut, an on-board unit gives both blocks in one
// bulk. The 12.4 GHz family's bulk has no unit block: its unit file holds
// zeros, not what the unit opened before in the slot left in the block.
TEST_F(FetchFromUnitTest, OnBoardUnitsReadTheBulkAgainForAFileMissingOrCut) {
    struct Row {
        uint32_t type;
        int unitFile, tableFile;  // lengths found in the cache; -1: none
        std::size_t tableBytes;
    };
    for (const Row& row : {Row{2, 3128, -1, 458624}, Row{4, -1, 100000, 571616}}) {
        SCOPED_TRACE(row.type);
        const bool orsk = row.type == 4;
        Place(kUnitName, row.unitFile);
        Place(kTableName, row.tableFile);
        std::fill_n(store.unitBlock.get(), 4096, 0xAB);
        // Unscripted, so that the 12.4 GHz family's Load may talk to the unit.
        const std::vector<uint8_t> bulk = PatternBody(orsk ? 0x8D000 + 4 : 0x72000 + 4);
        Stream().assign(bulk.begin(), bulk.end());
        bus.writes.clear();
        ASSERT_EQ(Fetch(row.type, true), 0);
        ASSERT_FALSE(bus.writes.empty());
        EXPECT_EQ(bus.writes.front(), BulkCommand(orsk));
        const auto payload = bulk.begin() + 4;
        const auto table = orsk ? payload : payload + 4096;
        const std::vector<uint8_t> unit(payload, payload + 3128);
        EXPECT_EQ(Cached(kUnitName), orsk ? std::vector<uint8_t>(3128, 0) : unit);
        EXPECT_EQ(Cached(kTableName), std::vector<uint8_t>(table, table + static_cast<std::ptrdiff_t>(row.tableBytes)));
    }
    EXPECT_TRUE(server.Requests().empty());
}

// A unit file missing, cut short or too long is read page by page and
// replaced whole; the whole table file is kept and nothing is downloaded.
TEST_F(FetchFromUnitTest, AUnitFileOfAnotherLengthIsReadAgainPageByPage) {
    const std::vector<uint8_t> table = PatternBody(458624);
    const std::vector<uint8_t> memory = PatternBody(4096);
    for (const int length : {-1, 0, 100, 1000, 100000}) {
        SCOPED_TRACE(length);
        Place(kUnitName, length);
        caltest::WriteWhole(File(kTableName), table);
        caltest::ExpectPages(bus, memory);
        ASSERT_EQ(Fetch(2, false), 0);
        EXPECT_TRUE(bus.ScriptDone());
        EXPECT_EQ(Cached(kUnitName), Word(memory, 0, 3128));
        EXPECT_EQ(Cached(kTableName), table);
        EXPECT_EQ(caltest::Entries(folder).size(), 2u) << "a temporary file was left";
    }
    EXPECT_TRUE(server.Requests().empty());
}

// A read from the unit that comes back short fails with -11: nothing is
// cached or downloaded and the corrections aren't loaded (Load would set the
// timebase from the blocks and send a 12.4 GHz unit its oven trim, which the
// script would refuse).
TEST_F(FetchFromUnitTest, AShortReadFromTheUnitFailsAndCachesNothing) {
    const std::vector<uint8_t> memory = PatternBody(4096);
    auto pages = [&](caltest::PageAnswer answer, std::vector<int> repairs) {
        return [this, answer, repairs] { caltest::ExpectPages(bus, answer, repairs); };
    };
    auto bulk = [this](bool orsk, std::size_t bytes) {
        return [this, orsk, bytes] { bus.Expect(BulkCommand(orsk), {}, PatternBody(bytes)); };
    };
    struct Row {
        const char* what;
        uint32_t type;
        bool onDevice;
        std::function<void()> script;
    };
    const Row rows[] = {
        {"a group that no read receives", 2, false,
         pages([&](int, int a) { return a == 0x100 ? Bytes{} : Word(memory, a); }, {0x100})},
        {"unplugged in pass one", 3, false,
         pages([&](int pass, int a) { return pass == 0 && a < 0x800 ? Word(memory, a) : Bytes{}; }, {0x000})},
        {"unplugged in pass two, within a reply", 1, false, pages(
             [&](int pass, int a) {
                 if (pass == 0 || a < 0x200) return Word(memory, a);
                 return a == 0x200 && pass == 1 ? Word(memory, a, 2) : Bytes{};
             },
             {0x200})},
        {"bulk one byte short", 2, true, bulk(false, 0x72000 + 3)},
        {"bulk cut off after 100000 bytes", 4, true, bulk(true, 4 + 100000)},
        {"bulk silent", 4, true, bulk(true, 0)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        row.script();
        EXPECT_EQ(Fetch(row.type, row.onDevice), qorUsbCommErr);
        EXPECT_TRUE(bus.ScriptDone());
        EXPECT_TRUE(caltest::Entries(folder).empty());
        EXPECT_EQ(store.corr->timebaseFactor, 1.0) << "the corrections were loaded";
    }
    EXPECT_TRUE(server.Requests().empty());
}

}  // namespace
