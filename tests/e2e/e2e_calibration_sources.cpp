// Units of all four types open through the C API with their calibration from
// each of its three sources: the unit itself, the download endpoint (a
// loopback server serving the files that the virtual instrument wrote) and,
// at the next open, the cache files; an open with none of them, or unplugged
// while the unit is read, fails cleanly and caches nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "e2e_bench.h"
#include "loopback_http_server.h"
#include "qor_api.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

struct Unit {
    int serial;
    int type;
    bool onDevice;
};

// Bench serials: 5100000t with the calibration on board, 5100001t without.
constexpr Unit kOnBoard[] = {{51000001, 1, true}, {51000002, 2, true}, {51000004, 4, true}};
constexpr Unit kPageOnly = {51000011, 1, false};
constexpr Unit kDownload[] = {{51000012, 2, false}, {51000013, 3, false}, {51000014, 4, false}};
constexpr Unit kNowhere = {51000022, 2, false};
constexpr e2e::Tone kTone = {1.0e9, -30.0};  // at every unit's input

std::string Bench() {
    std::vector<e2e::BenchUnit> units;
    for (const Unit& u : {kOnBoard[0], kOnBoard[1], kOnBoard[2], kPageOnly, kDownload[0], kDownload[1], kDownload[2],
                          kNowhere}) {
        units.push_back({static_cast<unsigned>(u.serial), u.type, {kTone}, NAN, u.onDevice, 28.0});
    }
    return simbench::Json(e2e::BenchOf(units));
}

std::vector<uint8_t> ReadWhole(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

using e2e::Eight;

class CalibrationSources : public ::testing::Test {
protected:
    void SetUp() override {
        if (!sim) GTEST_SKIP() << "no virtual instrument (QOR_D2XX_LIBRARY)";
        ASSERT_EQ(sim->loadBenchJson(Bench().c_str()), 0) << sim->lastError();
        setenv("QOR_CAL_URL", endpoint.BaseUrl().c_str(), 1);
        ASSERT_EQ(qorSetCalFilePath((cache.Path().string() + "/").c_str()), qorNoError);
    }
    void TearDown() override {
        qorSetCalFilePath(nullptr);
        unsetenv("QOR_CAL_URL");
    }

    static std::string TablePath(const Unit& u) { return "/custdata/P5100/D" + Eight(u.serial) + ".bin"; }
    // The endpoint serves the table file where the instrument wrote it.
    void Publish(const Unit& u) {
        ASSERT_EQ(sim->writeCalibrationFiles(u.serial, www.Path().c_str()), 0);
        caltest::LoopbackHttpServer::Reply reply;
        reply.body = ReadWhole(www.Path().string() + TablePath(u));
        endpoint.Serve(TablePath(u), reply);
    }
    int Requests(const Unit& u) const {
        int count = 0;
        for (const std::string& head : endpoint.Requests()) count += head.rfind("GET " + TablePath(u) + " ", 0) == 0;
        return count;
    }

    // Opens, checks the type, closes; the calibration commands the unit saw.
    struct CalCommands {
        int pageReads = 0;
        int bulkReads = 0;
        int crossovers = 0;
    };
    CalCommands OpenAndClose(const Unit& u, qorStatus expected = qorNoError) {
        sim->clearCommandLog(u.serial);
        int device = -1;
        EXPECT_EQ(qorOpenDeviceBySerialNumber(&device, u.serial), expected) << u.serial;
        if (expected == qorNoError) {
            int type = 0;
            EXPECT_EQ(qorGetDeviceType(device, &type), qorNoError);
            EXPECT_EQ(type, u.type);
            EXPECT_EQ(qorCloseDevice(device), qorNoError);
        }
        const int reads = e2e::CountCommands(u.serial, 'E'), pages = e2e::CountCommands(u.serial, 'E', 0xFF);
        return {pages, reads - pages, e2e::CountCommands(u.serial, 'Z', '2')};
    }
    // The cache files hold what the unit's factory calibration holds.
    void ExpectCacheFilesOf(const Unit& u, bool unitBlockFromUnit) {
        const std::size_t tableBytes = u.type <= 2 ? 458624 : 571616;
        std::vector<uint8_t> unit(4096), table(tableBytes);
        ASSERT_GT(sim->calibrationBlocks(u.serial, unit.data(), 4096, table.data(), static_cast<int>(tableBytes)), 0);
        const std::vector<uint8_t> unitFile = ReadWhole(cache.Path() / (Eight(u.serial) + ".qmi"));
        const std::vector<uint8_t> tableFile = ReadWhole(cache.Path() / ("D" + Eight(u.serial) + ".bin"));
        ASSERT_EQ(unitFile.size(), 3128u);
        if (unitBlockFromUnit) {
            EXPECT_TRUE(std::equal(unitFile.begin(), unitFile.end(), unit.begin())) << u.serial;
        }
        if (u.type == 1 && !u.onDevice) {
            EXPECT_EQ(tableFile, std::vector<uint8_t>(tableBytes, 0)) << "the first model keeps no table";
        } else {
            EXPECT_EQ(tableFile, table) << u.serial;
        }
    }

    const simcontrol::Calls* const sim = simcontrol::Resolve();
    caltest::LoopbackHttpServer endpoint;
    e2e::TempFolder www{"e2e_www"}, cache{"e2e_cal"};
};

TEST_F(CalibrationSources, FromTheUnitThenFromTheCache) {
    for (const Unit& u : kOnBoard) {
        const CalCommands first = OpenAndClose(u);
        EXPECT_EQ(first.bulkReads, 1) << u.serial;
        EXPECT_EQ(first.pageReads, 0) << u.serial;
        ExpectCacheFilesOf(u, u.type <= 2);
        const CalCommands again = OpenAndClose(u);
        EXPECT_EQ(again.bulkReads + again.pageReads, 0) << u.serial;
        EXPECT_EQ(again.crossovers, u.type >= 3 ? 1 : 0) << "the crossover goes to the unit at every open";
    }
    const CalCommands page = OpenAndClose(kPageOnly);
    EXPECT_GE(page.pageReads, 2048);
    ExpectCacheFilesOf(kPageOnly, true);
    EXPECT_EQ(OpenAndClose(kPageOnly).pageReads, 0);
    EXPECT_EQ(Requests(kPageOnly), 0);
}

// A calibration path of 4 KiB names no folder that can exist: the open takes
// the calibration from the unit all the same, writes nothing and measures
// right; so do a null and an empty path (the default folder).
TEST_F(CalibrationSources, PathsOfAnyLengthStillMeasure) {
    const std::string long4k = "/" + std::string(4095, 'x');
    for (const char* path : {long4k.c_str(), static_cast<const char*>(nullptr), ""}) {
        SCOPED_TRACE(path ? std::to_string(std::string(path).size()) + " bytes" : "null");
        ASSERT_EQ(qorSetCalFilePath(path), qorNoError);
        const int device = e2e::Open(kOnBoard[1].serial);
        ASSERT_GE(device, 0);
        const e2e::Trace trace = e2e::Measure(device, e2e::Between(999.9e6, 1000.1e6, 1e3));
        qorCloseDevice(device);
        ASSERT_EQ(trace.get, qorNoError);
        EXPECT_NEAR(trace.max[trace.PeakBin()], kTone.level, 0.5);
    }
}

TEST_F(CalibrationSources, FromTheDownloadEndpointThenFromTheCache) {
    for (const Unit& u : kDownload) {
        Publish(u);
        const CalCommands first = OpenAndClose(u);
        EXPECT_EQ(Requests(u), 1) << u.serial;
        EXPECT_GE(first.pageReads, 2048) << "the unit block comes from the unit";
        ExpectCacheFilesOf(u, true);
        EXPECT_EQ(OpenAndClose(u).pageReads, 0);
        EXPECT_EQ(Requests(u), 1) << "the cache answers the second open";
    }
}

TEST_F(CalibrationSources, NoTableFileAnywhereFailsTheOpenAndFreesTheUnit) {
    OpenAndClose(kNowhere, qorInternetErr);
    EXPECT_FALSE(fs::exists(cache.Path() / ("D" + Eight(kNowhere.serial) + ".bin")));
    EXPECT_FALSE(fs::exists(cache.Path() / (Eight(kNowhere.serial) + ".qmi")));
    int serials[8] = {}, count = 0;
    ASSERT_EQ(qorGetSerialNumberList(serials, &count), qorNoError);
    EXPECT_NE(std::find(serials, serials + count, kNowhere.serial), serials + count) << "its channels were released";

    setenv("QOR_CAL_URL", caltest::DeadBaseUrl().c_str(), 1);
    OpenAndClose(kNowhere, qorInternetErr);

    setenv("QOR_CAL_URL", endpoint.BaseUrl().c_str(), 1);
    Publish(kNowhere);
    OpenAndClose(kNowhere);  // the next open tries again
    ExpectCacheFilesOf(kNowhere, true);
}

// A unit block half read would read every level wrong for ever: an unplug
// while the unit's calibration memory is read fails the open with -11 and
// caches nothing. Plugged in again, the unit opens and measures right.
TEST_F(CalibrationSources, UnpluggedDuringTheUnitReadFailsTheOpenAndCachesNothing) {
    const Unit& u = kDownload[0];
    Publish(u);
    sim->clearCommandLog(u.serial);
    std::atomic<bool> returned{false};
    qorStatus opened = qorUnknownErr;
    std::thread open([&] {
        int device = -1;
        opened = qorOpenDeviceBySerialNumber(&device, u.serial);
        returned = true;
    });
    // Pulled out at the first of its 2048 page reads, well before the last.
    while (!returned && e2e::CountCommands(u.serial, 'E', 0xFF) == 0) std::this_thread::sleep_for(200us);
    ASSERT_EQ(sim->unplug(u.serial, 0.0), 0);
    open.join();
    EXPECT_EQ(opened, qorUsbCommErr);
    EXPECT_FALSE(fs::exists(cache.Path() / (Eight(u.serial) + ".qmi")));
    EXPECT_FALSE(fs::exists(cache.Path() / ("D" + Eight(u.serial) + ".bin")));
    EXPECT_EQ(Requests(u), 0) << "no download after a failed read";

    ASSERT_EQ(sim->replug(u.serial), 0);
    int device = -1;
    ASSERT_EQ(qorOpenDeviceBySerialNumber(&device, u.serial), qorNoError);
    const e2e::Trace trace = e2e::Measure(device, e2e::Between(kTone.frequency - 50e3, kTone.frequency + 50e3, 1e3));
    EXPECT_EQ(trace.get, qorNoError);
    e2e::ExpectTones(trace, {kTone}, 0.5, 2e3);
    EXPECT_EQ(qorCloseDevice(device), qorNoError);
    ExpectCacheFilesOf(u, true);
}

}  // namespace
