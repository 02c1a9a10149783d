// The virtual instrument's USB surface and firmware replies.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "sim_host.h"

using namespace simtest;

// The channels' names, the list orders and hidden units, unplugging and
// replugging are checked through the library's open and unplug tests.
TEST(SimBus, AChannelHeldElsewhereOpensOnlyOnceReleased) {
    simbench::Bench bench;
    bench.units = {simbench::Unit(43, 4).HeldElsewhere()};
    LoadBench(bench);
    EXPECT_EQ(List()[0].flags & FT_FLAGS_OPENED, 1u);
    FT_HANDLE h = nullptr;
    EXPECT_NE(FT_Open(0, &h), FT_OK);
    ASSERT_EQ(qorsim_hold_stream_channel(43, 0), 0);
    ASSERT_EQ(FT_Open(0, &h), FT_OK);
    EXPECT_EQ(List()[0].flags & FT_FLAGS_OPENED, 1u); // open by us now
    EXPECT_NE(FT_Open(0, &h), FT_OK);                 // and not twice
    FT_Close(h);
}

TEST(SimFirmware, MissingAndGarbledRepliesAndTheReadTimeOut) {
    LoadBench(FourUnitBench());
    Unit u(10000003);
    qorsim_reply_faults(10000003, 1, 1);
    FT_SetTimeouts(u.command, 500, 500); // 5 ms on the fast clock
    u.Send({'K', 0});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(u.Reply(2).empty());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
    u.Send({'K', 0});
    const auto garbled = u.Reply(2);
    EXPECT_EQ(garbled.size(), 2u);
    u.Send({'K', 0});
    const auto good = u.Reply(2);
    ASSERT_EQ(good.size(), 2u);
    EXPECT_EQ((good[0] & 0x1F) * 256 + good[1], 640);
}

TEST(SimFirmware, CommandLogKeepsDecodedPayloadsAndWireBytes) {
    LoadBench(FourUnitBench());
    Unit u(10000002);
    qorsim_clear_command_log(10000002);
    u.Send({'N', 0xC0, 0x00, 0xDB, 0x01});
    u.Send({});
    EXPECT_EQ(qorsim_command_count(10000002), 2);
    uint8_t payload[8];
    ASSERT_EQ(qorsim_command_log(10000002, 0, payload, sizeof payload), 5);
    EXPECT_EQ(std::vector<uint8_t>(payload, payload + 5), (std::vector<uint8_t>{'N', 0xC0, 0x00, 0xDB, 0x01}));
    EXPECT_EQ(qorsim_command_log(10000002, 1, payload, sizeof payload), 0);
    EXPECT_EQ(qorsim_command_log(10000002, 2, payload, sizeof payload), -1);
    uint8_t wire[16];
    ASSERT_EQ(qorsim_wire_log(10000002, wire, sizeof wire), 9);
    EXPECT_EQ(std::vector<uint8_t>(wire, wire + 9),
              (std::vector<uint8_t>{'N', 0xDB, 0xDC, 0x00, 0xDB, 0xDD, 0x01, 0xC0, 0xC0}));
}

TEST(SimBus, PortCycleReenumerates) {
    LoadBench(FourUnitBench());
    Unit u(10000001);
    ASSERT_TRUE(u.Ok());
    ASSERT_EQ(FT_CyclePort(u.stream), FT_OK);
    uint8_t frame[2] = {'V', 0xC0};
    DWORD written = 0;
    EXPECT_EQ(FT_Write(u.command, frame, 2, &written), FT_IO_ERROR); // stale after the cycle
    EXPECT_EQ(List().size(), 6u);          // gone while it re-enumerates (15 ms on the fast clock)
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(List().size(), 8u);
}

TEST(SimBench, BadBenchesAreRefusedWithAReason) {
    EXPECT_EQ(qorsim_load_bench_json("{"), -1);
    EXPECT_NE(std::string(qorsim_last_error()), "");
    EXPECT_EQ(qorsim_load_bench_json(R"({"units": [{"serial": 5, "type": 7}]})"), -1);
    EXPECT_EQ(qorsim_load_bench_json(R"({"clock": "slow"})"), -1);
    EXPECT_EQ(qorsim_load_bench_json(R"({"units": [{"serial": 5}, {"serial": 5}]})"), -1);
    EXPECT_EQ(qorsim_load_bench_json(R"({"units": [{"serial": 5, "signals": [{"kind": "chirp"}]}]})"), -1);
    EXPECT_EQ(qorsim_load_bench_json(R"({"clock": "fast"})"), 0);
    EXPECT_EQ(qorsim_clock_scale(), 100.0);
}
