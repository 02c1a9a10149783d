// Listing, opening, closing and presetting units of every type through the C
// API, against the virtual instrument with its fast clock: the retries, the
// oven errors and the faults of a unit that vanishes or goes silent.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "e2e_bench.h"
#include "qor_api.h"

extern "C" int e2e_open_walk(char* report, size_t capacity);

namespace {

constexpr unsigned kVelm = 10000001, kVelmB = 10000002, kOrskA = 10000003, kOrskB = 10000004;

// The 12.4 GHz A unit keeps no table on board: it is in the cache, as if downloaded before.
simbench::Bench Bench(const std::string& listOrder = "unit") {
    simbench::Bench bench;
    bench.listOrder = listOrder;
    bench.units = {simbench::Unit(kVelm, 1).Temperature(25.0), simbench::Unit(kVelmB, 2).Temperature(31.5).Voltage(5.02),
                   simbench::Unit(kOrskA, 3).Temperature(40.0).OnDeviceCalibration(false),
                   simbench::Unit(kOrskB, 4).Temperature(-5.0).Voltage(4.9)};
    return bench;
}

using e2e::CountCommands;

class OpenTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim = e2e::TheSim();
        if (!sim) GTEST_SKIP() << "the virtual instrument is not loaded (QOR_D2XX_LIBRARY)";
        ASSERT_EQ("", e2e::LoadBench(Bench()));
        sim->clearCommandLog(0);
    }
    void TearDown() override { e2e::CloseAll(); }

    std::vector<int> List() {
        int serials[8];
        int count = -1;
        EXPECT_EQ(qorNoError, qorGetSerialNumberList(serials, &count));
        return std::vector<int>(serials, serials + std::max(count, 0));
    }

    int OpenOrFail(unsigned serial) {
        int device = -1;
        EXPECT_EQ(qorNoError, qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)));
        return device;
    }

    const e2e::Sim* sim = nullptr;
};

TEST_F(OpenTest, ACProgramWalksEveryUnitOfTheBench) {
    char report[1024];
    ASSERT_EQ(4, e2e_open_walk(report, sizeof report)) << report;
    std::istringstream lines(report);
    const struct {
        int serial;
        char typeDigit;
        int type;
        float temperature;
    } expected[] = {{10000001, '1', 1, 0.0f}, {10000002, '2', 2, 31.5f}, {10000003, '3', 3, 40.0f},
                    {10000004, '3', 4, -5.0f}};
    for (const auto& unit : expected) {
        int serial = 0, type = 0;
        std::string firmware;
        float temperature = 0.0f;
        ASSERT_TRUE(lines >> serial >> firmware >> type >> temperature);
        EXPECT_EQ(unit.serial, serial);
        ASSERT_GE(firmware.size(), 11u);
        EXPECT_EQ(unit.typeDigit, firmware[8]);
        EXPECT_EQ(unit.type, type);
        EXPECT_NEAR(unit.temperature, temperature, 0.0625) << "type 1 has no sensor and reads 0";
    }
    EXPECT_EQ(4u, List().size()) << "every unit free again";
}

TEST_F(OpenTest, ListsInTheDriversOrderAndHidesUnitsInUse) {
    EXPECT_EQ((std::vector<int>{10000001, 10000002, 10000003, 10000004}), List());
    ASSERT_EQ(0, sim->loadBenchJson(simbench::Json(Bench("reversed")).c_str()));
    EXPECT_EQ((std::vector<int>{10000004, 10000003, 10000002, 10000001}), List());
    ASSERT_EQ(0, sim->loadBenchJson(simbench::Json(Bench("mixed")).c_str()));
    EXPECT_EQ((std::vector<int>{10000001, 10000002, 10000003, 10000004}), List()) << "A channels decide the order";

    int device = -1;
    ASSERT_EQ(qorNoError, qorOpenDevice(&device));
    EXPECT_EQ(0, device);
    int serial = 0;
    qorGetSerialNumber(device, &serial);
    EXPECT_EQ(10000001, serial) << "the first listed";
    EXPECT_EQ((std::vector<int>{10000002, 10000003, 10000004}), List());

    sim->holdStream(kOrskA, 1);
    EXPECT_EQ((std::vector<int>{10000002, 10000004}), List()) << "an A channel held elsewhere hides its unit";
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDeviceBySerialNumber(&device, kOrskA));
    EXPECT_EQ(0, device) << "a failed open leaves the index alone";
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDeviceBySerialNumber(&device, 12345678)) << "not on the bus";
    EXPECT_EQ(qorNullPtrErr, qorOpenDeviceBySerialNumber(nullptr, kVelmB));
    EXPECT_EQ(qorNullPtrErr, qorOpenDevice(nullptr));
}

TEST_F(OpenTest, AnEmptyBusOpensNothing) {
    ASSERT_EQ(0, sim->loadBenchJson(simbench::Json({}).c_str()));
    EXPECT_TRUE(List().empty());
    int device = -1;
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDevice(&device));
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDevice(nullptr)) << "the listing comes first, then the pointer";
}

TEST_F(OpenTest, UnknownFirmwareGetsOneRetry) {
    sim->unknownFirmware(kVelmB, 1);
    const int device = OpenOrFail(kVelmB);
    int type = 0;
    qorGetDeviceType(device, &type);
    EXPECT_EQ(DeviceTypeVelmB, type);
    EXPECT_EQ(2, CountCommands(kVelmB, 'V')) << "asked twice";
    qorCloseDevice(device);

    sim->clearCommandLog(kVelmB);
    sim->unknownFirmware(kVelmB, 2);
    int failed = -1;
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDeviceBySerialNumber(&failed, kVelmB));
    EXPECT_EQ(2, CountCommands(kVelmB, 'V'));
    EXPECT_EQ(4u, List().size()) << "the channels are released";
    EXPECT_EQ(0, OpenOrFail(kVelm)) << "and the slot is free";
}

TEST_F(OpenTest, AWarmingOvenRefusesTheOpenUntilWarm) {
    sim->ovenWarming(kOrskB, 1e9);
    int device = -1;
    EXPECT_EQ(qorOcxoWarmupErr, qorOpenDeviceBySerialNumber(&device, kOrskB));
    EXPECT_EQ(1, CountCommands(kOrskB, 'R', 'x'));
    EXPECT_EQ(0, CountCommands(kOrskB, 'R', 'a')) << "no current read while warming";
    EXPECT_EQ(4u, List().size()) << "closed after the port cycle";

    sim->ovenWarming(kOrskB, 0.0);
    device = OpenOrFail(kOrskB);
    EXPECT_EQ(0, device);
    int type = 0;
    qorGetDeviceType(device, &type);
    EXPECT_EQ(DeviceTypeOrskB, type);
}

TEST_F(OpenTest, AnOvenWithoutCurrentIsAskedTwiceThenRefused) {
    for (const unsigned serial : {kOrskA, kOrskB}) {
        SCOPED_TRACE(serial);
        sim->clearCommandLog(serial);
        sim->ovenCurrent(serial, 20.0);
        int device = -1;
        EXPECT_EQ(qorOcxoCurrentErr, qorOpenDeviceBySerialNumber(&device, static_cast<int>(serial)));
        EXPECT_EQ(2, CountCommands(serial, 'R', 'j'));
        EXPECT_EQ(2, CountCommands(serial, 'R', 'a'));
        EXPECT_EQ(4u, List().size());
    }
    sim->ovenCurrent(kOrskA, 31.0);
    EXPECT_EQ(0, OpenOrFail(kOrskA));
}

TEST_F(OpenTest, AUnitThatVanishesOrFallsSilentIsNotFound) {
    sim->unplug(kOrskB, 5.0);  // during the open's first pauses
    int device = -1;
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDeviceBySerialNumber(&device, kOrskB));

    sim->replyFaults(kVelm, -1, 0);  // it listens but answers nothing
    EXPECT_EQ(qorDeviceNotFoundErr, qorOpenDeviceBySerialNumber(&device, kVelm));
    EXPECT_EQ(-1, device);
    EXPECT_EQ(0, OpenOrFail(kVelmB)) << "both slots were freed";
}

TEST_F(OpenTest, CloseAndPresetEndTheIndex) {
    int device = OpenOrFail(kVelmB);
    EXPECT_EQ(qorNoError, qorPreset(device));
    int serial = 0;
    EXPECT_EQ(qorDeviceNotOpenErr, qorGetSerialNumber(device, &serial));
    EXPECT_EQ(qorDeviceNotOpenErr, qorPreset(device));
    EXPECT_EQ(4u, List().size());

    device = OpenOrFail(kVelmB);
    EXPECT_EQ(0, device) << "reopened in the same slot";
    EXPECT_EQ(qorNoError, qorCloseDevice(device));
    EXPECT_EQ(qorDeviceNotOpenErr, qorCloseDevice(device));
    EXPECT_EQ(qorInvalidDeviceErr, qorCloseDevice(8));
}

TEST_F(OpenTest, TemperatureAndSupplyReadOuts) {
    const int velmB = OpenOrFail(kVelmB);
    const int orskB = OpenOrFail(kOrskB);
    const int velm = OpenOrFail(kVelm);
    const int orskA = OpenOrFail(kOrskA);

    sim->setTemperature(kVelmB, 42.0);
    float value = 0.0f;
    EXPECT_EQ(qorNoError, qorQueryTemperature(velmB, &value));
    EXPECT_NEAR(42.0f, value, 0.0625f);

    EXPECT_EQ(qorNoError, qorQueryDiagnostics(velmB, &value));
    EXPECT_NEAR(5.02f, value, 6.6f / 1024);
    EXPECT_EQ(qorNoError, qorQueryDiagnostics(orskB, &value));
    EXPECT_NEAR(4.9f, value, 6.6f / 1024);

    sim->clearCommandLog(0);
    for (const int device : {velm, orskA}) {
        EXPECT_EQ(qorNoError, qorQueryDiagnostics(device, &value));
        EXPECT_EQ(5.0f, value) << "no voltage read-back on this type";
    }
    EXPECT_EQ(qorNoError, qorQueryTemperature(velm, &value));
    EXPECT_EQ(0.0f, value);
    EXPECT_EQ(0, sim->commandCount(0)) << "none of these reached a unit";
    EXPECT_EQ(qorNullPtrErr, qorQueryTemperature(velm, nullptr));
}

}  // namespace
