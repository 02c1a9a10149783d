// FetchCalibration's choice of source and its cache files, with the
// download endpoint on loopback. A null link stands for a unit that answers
// nothing; the reads from the unit itself are tested in cal_reads_test.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

#include "cal_folder.h"
#include "calibration_store.h"
#include "corrections_orsk.h"
#include "loopback_http_server.h"
#include "qor_api.h"
#include "qor_lib.h"

namespace {

namespace fs = std::filesystem;
using caltest::LoopbackHttpServer;
using caltest::PatternBody;
using caltest::ReadWhole;
using caltest::WriteWhole;

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

class FetchTest : public ::testing::Test, protected caltest::CalibrationPlace {
protected:
    void ServeTable(std::size_t size) {
        LoopbackHttpServer::Reply reply;
        reply.body = PatternBody(size);
        server.Serve(kTablePath, reply);
    }
    int Fetch(uint32_t type, bool onDevice = false) {
        return qor::FetchCalibration(store, {kSerial, type, onDevice}, nullptr);
    }
    qor::CalibrationStore store;
};

TEST_F(FetchTest, MissingTableIsDownloadedAndBothFilesRewritten) {
    WriteWhole(File(kUnitName), UnitBytes());
    ServeTable(458624);
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(ReadWhole(File(kUnitName)), UnitBytes());
    EXPECT_EQ(ReadWhole(File(kTableName)), PatternBody(458624));
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{kUnitName, kTableName}));
    ASSERT_TRUE(store.corr);
    EXPECT_EQ(store.corr->family.Type(), 2);
    EXPECT_DOUBLE_EQ(store.corr->timebaseFactor, 1.0 + 250e-9);  // Load ran on the cached unit block
}

TEST_F(FetchTest, FailedDownloadLeavesNoFileAndTheNextOpenRetries) {
    ASSERT_EQ(Fetch(4), qorInternetErr);  // the endpoint answers 404 with a short page
    EXPECT_TRUE(caltest::Entries(folder).empty());
    ServeTable(399999);
    ASSERT_EQ(Fetch(4), qorInternetErr);
    EXPECT_TRUE(caltest::Entries(folder).empty());
    ServeTable(571616 + 100);
    ASSERT_EQ(Fetch(4), 0);
    EXPECT_EQ(server.Requests().size(), 3u);
    EXPECT_EQ(ReadWhole(File(kTableName)).size(), 571616u);
    EXPECT_EQ(ReadWhole(File(kUnitName)).size(), 3128u);
    EXPECT_NE(dynamic_cast<qor::CorrectionsOrsk*>(store.corr.get()), nullptr);
}

// The blocks of a slot still hold the unit opened in it before.
TEST_F(FetchTest, FirstModelDownloadsNothingAndCachesAZeroTable) {
    std::fill(store.tableBlock.get(), store.tableBlock.get() + 768000, 0xAB);
    ASSERT_EQ(Fetch(1), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(ReadWhole(File(kTableName)), std::vector<uint8_t>(458624, 0));
    EXPECT_EQ(ReadWhole(File(kUnitName)).size(), 3128u);
}

TEST_F(FetchTest, UnitsWithCalibrationOnBoardNeverDownload) {
    std::fill(store.unitBlock.get(), store.unitBlock.get() + 4096, 0xAB);
    ASSERT_EQ(Fetch(4, true), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{kUnitName, kTableName}));
    EXPECT_EQ(ReadWhole(File(kUnitName)), std::vector<uint8_t>(3128, 0)) << "this family's bulk has no unit block";
}

TEST_F(FetchTest, CachedFilesAreTrustedAsTheyAreEvenWhenShort) {
    WriteWhole(File(kUnitName), UnitBytes());
    WriteWhole(File(kTableName), std::vector<uint8_t>(1000, 0x11));
    std::fill(store.tableBlock.get(), store.tableBlock.get() + 768000, 0xAB);
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_EQ(ReadWhole(File(kTableName)).size(), 1000u);  // not rewritten
    EXPECT_EQ(store.tableBlock[999], 0x11);
    EXPECT_EQ(store.tableBlock[1000], 0xAB);  // the rest keeps what it held
    EXPECT_DOUBLE_EQ(store.corr->timebaseFactor, 1.0 + 250e-9);
}

TEST_F(FetchTest, AFolderInPlaceOfAUnitFileCountsAsMissing) {
    fs::create_directory(File(kUnitName));
    WriteWhole(File(kTableName), PatternBody(458624));
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_TRUE(server.Requests().empty());
    EXPECT_TRUE(fs::is_directory(File(kUnitName)));
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{kUnitName, kTableName}));  // no temporary left
}

TEST_F(FetchTest, AMissingFolderStillGivesUsableCalibration) {
    ServeTable(458624);
    qor::SetCalFilePath((folder.Path().string() + "/missing/").c_str());
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_FALSE(fs::exists(folder.Path() / "missing"));  // a set path is never created
    EXPECT_TRUE(store.corr);

    WriteWhole(File("file"), {1});
    qor::SetCalFilePath((folder.Path().string() + "/file/").c_str());
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_EQ(server.Requests().size(), 2u);
}

TEST_F(FetchTest, AReadOnlyFolderStillGivesUsableCalibration) {
    if (geteuid() == 0) GTEST_SKIP() << "running as root: a read-only folder is still writable";
    ServeTable(458624);
    fs::permissions(folder.Path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(Fetch(2), 0);
    EXPECT_TRUE(caltest::Entries(folder).empty());
    fs::permissions(folder.Path(), fs::perms::owner_all);
}

TEST_F(FetchTest, PathIsAPlainPrefix) {
    ServeTable(458624);
    qor::SetCalFilePath((folder.Path().string() + "/cal").c_str());
    ASSERT_EQ(Fetch(2), 0);
    EXPECT_EQ(caltest::Entries(folder), (std::set<std::string>{"cal00000042.qmi", "calD00000042.bin"}));
}

TEST_F(FetchTest, DefaultFolderLiesUnderTheDataHome) {
    qor::SetCalFilePath(nullptr);
    const std::string expected = std::string(std::getenv("XDG_DATA_HOME")) + "/TarvenWorks/cal_files/";
    EXPECT_EQ(qor::CalFolder(), expected);
    EXPECT_TRUE(fs::is_directory(expected));
    qor::SetCalFilePath("");
    EXPECT_EQ(qor::CalFolder(), expected);
}

}  // namespace
