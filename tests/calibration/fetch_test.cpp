// FetchCalibration's choice of source and its cache files, with the
// download endpoint on loopback and the unit on the scripted bus; the frames
// of the reads from the unit are tested in cal_reads_test.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <unistd.h>

#include "../link/link_fixture.h"
#include "cal_folder.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
#include "loopback_http_server.h"
#include "qor_api.h"
#include "qor_lib.h"
#include "unit_script.h"

namespace {

namespace fs = std::filesystem;
using caltest::LoopbackHttpServer;
using caltest::PatternBody;
using caltest::ReadWhole;
using caltest::WriteWhole;
using caltest::Bytes;
using caltest::BulkCommand;
using caltest::Word;

constexpr int32_t kSerial = 42;
constexpr const char* kUnitName = "00000042.qmi";
constexpr const char* kTableName = "D00000042.bin";
constexpr const char* kTablePath = "/custdata/P0000/D00000042.bin";

// A unit block whose timebase word says 1 + 250e-9.
std::vector<uint8_t> UnitBytes() {
    std::vector<uint8_t> unit = PatternBody(3128);
    unit[2548] = (32768 + 250) & 0xFF;
    unit[2549] = (32768 + 250) >> 8;
    return unit;
}

// The bulk answer of a 4.4 GHz unit that carries the unit block above.
std::vector<uint8_t> UnitBulk() {
    std::vector<uint8_t> bulk = PatternBody(0x72000 + 4);
    const std::vector<uint8_t> unit = UnitBytes();
    std::copy(unit.begin(), unit.end(), bulk.begin() + 4);
    return bulk;
}

class FetchTest : public qor::test::LinkTest, protected caltest::CalibrationPlace {
protected:
    void ServeTable(std::size_t size) {
        LoopbackHttpServer::Reply reply;
        reply.body = PatternBody(size);
        server.Serve(kTablePath, reply);
    }
    int Fetch(uint32_t type, bool onDevice = false) {
        return qor::FetchCalibration(store, {kSerial, type, onDevice}, &link);
    }
    // A cache file of `length` bytes of `fill`; none for -1.
    void Place(const char* name, int length, uint8_t fill = 0x33) {
        fs::remove(File(name));
        if (length >= 0) WriteWhole(File(name), std::vector<uint8_t>(static_cast<std::size_t>(length), fill));
    }
    std::vector<uint8_t> Cached(const char* name) const { return ReadWhole(File(name)); }
    qor::CalibrationStore store;
};

// A download that fails or brings less than the family's whole table writes
// nothing and loads no corrections (Load would set the timebase from the
// unit block, or send a 12.4 GHz unit its oven trim); the next open asks again.
TEST_F(FetchTest, ShortOrFailedDownloadsWriteNothingAndTheNextOpenAsksAgain) {
    WriteWhole(File(kUnitName), UnitBytes());
    EXPECT_EQ(Fetch(4), qorInternetErr);  // the endpoint answers 404 with a short page
    struct Row {
        uint32_t type;
        std::size_t served;
    };
    for (const Row& row : {Row{4, 399999}, Row{4, 400000}, Row{4, 571615}, Row{2, 400000}, Row{2, 458623}}) {
        SCOPED_TRACE(row.served);
        ServeTable(row.served);
        EXPECT_EQ(Fetch(row.type), qorInternetErr);
        EXPECT_EQ(caltest::Entries(folder), std::set<std::string>{kUnitName});
        EXPECT_EQ(ReadWhole(File(kUnitName)), UnitBytes());
        EXPECT_EQ(store.corr->timebaseFactor, 1.0);
        EXPECT_TRUE(bus.writes.empty());
    }
    ServeTable(571616 + 100);
    ASSERT_EQ(Fetch(4), 0);
    EXPECT_EQ(server.Requests().size(), 7u);
    EXPECT_EQ(ReadWhole(File(kTableName)), PatternBody(571616));
    EXPECT_EQ(ReadWhole(File(kUnitName)), UnitBytes());
    EXPECT_NE(dynamic_cast<qor::CorrectionsOrsk*>(store.corr.get()), nullptr);
}

// A table file cut short, or of the other family's length, counts as
// missing: it is downloaded again and replaced whole. A whole one is trusted.
TEST_F(FetchTest, ATableFileOfAnotherLengthIsDownloadedAgain) {
    struct Row {
        uint32_t type;
        std::size_t whole, other;
    };
    std::size_t requests = 0;
    for (const Row& row : {Row{2, 458624, 571616}, Row{4, 571616, 458624}}) {
        ServeTable(row.whole);
        WriteWhole(File(kUnitName), UnitBytes());
        for (const std::size_t length : std::vector<std::size_t>{0, 100, 1000, 100000, row.other}) {
            SCOPED_TRACE(testing::Message() << "type " << row.type << ", " << length << " bytes");
            WriteWhole(File(kTableName), std::vector<uint8_t>(length, 0x11));
            ASSERT_EQ(Fetch(row.type), 0);
            EXPECT_EQ(server.Requests().size(), ++requests);
            EXPECT_EQ(ReadWhole(File(kTableName)), PatternBody(row.whole));
            EXPECT_EQ(ReadWhole(File(kUnitName)), UnitBytes());
            EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{kUnitName, kTableName}));
        }
        ASSERT_EQ(Fetch(row.type), 0);
        EXPECT_EQ(server.Requests().size(), requests);
    }
}

TEST_F(FetchTest, AFolderInPlaceOfATableFileCountsAsMissing) {
    WriteWhole(File(kUnitName), UnitBytes());
    fs::create_directory(File(kTableName));
    ServeTable(458624);
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_EQ(server.Requests().size(), 1u);
    EXPECT_TRUE(fs::is_directory(File(kTableName)));
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{kUnitName, kTableName}));  // no temporary left
}

// The calibration comes from the unit's bulk, which a folder that isn't
// there can't keep.
TEST_F(FetchTest, AMissingFolderStillGivesUsableCalibration) {
    for (const char* path : {"/missing/", "/file/"}) {
        SCOPED_TRACE(path);
        WriteWhole(File("file"), {1});
        qor::SetCalFilePath((folder.Path().string() + path).c_str());
        bus.Expect(caltest::BulkCommand(false), {}, UnitBulk());
        ASSERT_EQ(Fetch(2, true), 0);
        EXPECT_TRUE(bus.ScriptDone());
        EXPECT_DOUBLE_EQ(store.corr->timebaseFactor, 1.0 + 250e-9);
    }
    EXPECT_EQ(caltest::Entries(folder), std::set<std::string>{"file"});  // a set path is never created
}

TEST_F(FetchTest, AReadOnlyFolderStillGivesUsableCalibration) {
    if (geteuid() == 0) GTEST_SKIP() << "running as root: a read-only folder is still writable";
    WriteWhole(File(kUnitName), UnitBytes());
    ServeTable(458624);
    fs::permissions(folder.Path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(Fetch(2), 0);
    EXPECT_EQ(caltest::Entries(folder), std::set<std::string>{kUnitName});
    EXPECT_DOUBLE_EQ(store.corr->timebaseFactor, 1.0 + 250e-9);
    fs::permissions(folder.Path(), fs::perms::owner_all);
}

TEST_F(FetchTest, PathIsAPlainPrefix) {
    WriteWhole(File("cal00000042.qmi"), UnitBytes());
    ServeTable(458624);
    qor::SetCalFilePath((folder.Path().string() + "/cal").c_str());
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{"cal00000042.qmi", "calD00000042.bin"}));
    EXPECT_DOUBLE_EQ(store.corr->timebaseFactor, 1.0 + 250e-9);  // the unit file was read under the prefix
}

TEST_F(FetchTest, DefaultFolderLiesUnderTheDataHome) {
    qor::SetCalFilePath(nullptr);
    const std::string expected = std::string(std::getenv("XDG_DATA_HOME")) + "/TarvenWorks/cal_files/";
    EXPECT_EQ(qor::CalFolder(), expected);
    EXPECT_TRUE(fs::is_directory(expected));
    qor::SetCalFilePath("");
    EXPECT_EQ(qor::CalFolder(), expected);
}

// Whichever file is missing or cut, an on-board unit gives both blocks in one
// bulk. The 12.4 GHz family's bulk has no unit block: its unit file holds
// zeros, not what the unit opened before in the slot left in the block.
TEST_F(FetchTest, OnBoardUnitsReadTheBulkAgainForAFileMissingOrCut) {
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
TEST_F(FetchTest, AUnitFileOfAnotherLengthIsReadAgainPageByPage) {
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
TEST_F(FetchTest, AShortReadFromTheUnitFailsAndCachesNothing) {
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
