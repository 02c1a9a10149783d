// The stream channel: every mode with its sizes and framing, the pacing, and
// the faults that the host must survive.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "sim_host.h"

using namespace simtest;

namespace {

const std::vector<uint8_t> kSync{0xA5, 0x5A, 0xF0, 0x0F};

std::vector<uint8_t> Hop(int first, int last) {
    return {'N', static_cast<uint8_t>(first), static_cast<uint8_t>(first >> 8), static_cast<uint8_t>(last),
            static_cast<uint8_t>(last >> 8)};
}

std::vector<uint8_t> Segment(int index, int start, int stepsMinusOne) {
    return {'Y', static_cast<uint8_t>(index), static_cast<uint8_t>(stepsMinusOne), static_cast<uint8_t>(start),
            static_cast<uint8_t>(start >> 8)};
}

}  // namespace

// A capture sends its sync word and the blocks asked for, hardware hops one
// block per step in either direction, and nothing follows either.
TEST(SimStream, CaptureAndHopsSendExactlyTheirBlocks) {
    LoadBench(FourUnitBench());
    Unit u(10000003);
    u.Send({'S', 8});
    EXPECT_EQ(u.Queued(), 4u + 8 * 2048);
    EXPECT_EQ(u.Stream(4), kSync);
    EXPECT_EQ(u.Stream(8 * 2048).size(), 8u * 2048);
    for (auto [first, last] : {std::pair{600, 700}, std::pair{133, 100}, std::pair{20000, 20000}}) {
        u.Send(Hop(first, last));
        const uint32_t expected = 2048u * (std::abs(last - first) + 1);
        EXPECT_EQ(u.Queued(), expected);
        EXPECT_EQ(u.Stream(expected).size(), expected);
    }
    FT_SetTimeouts(u.stream, 100, 100);
    EXPECT_TRUE(u.Stream(1).empty());
}

TEST(SimStream, ContinuousStreamRunsUntilStopped) {
    LoadBench(FourUnitBench());
    Unit u(10000002);
    u.Send({'T'});
    EXPECT_EQ(u.Stream(4), kSync);
    for (int i = 0; i < 20; ++i) ASSERT_EQ(u.Stream(16384).size(), 16384u);
    u.Send({'3'});
    const DWORD left = u.Queued();
    EXPECT_LT(left, 16384u);
    u.Stream(left);
    EXPECT_EQ(u.Queued(), 0u);
}

TEST(SimStream, FramedProgramRepeatsWithHeaders) {
    LoadBench(FourUnitBench());
    Unit u(10000004);
    u.Send(Segment(0, 1000, 249));
    u.Send(Segment(1, 1250, 9));
    u.Send({'X', 2, 3});
    for (int round = 0; round < 2; ++round) {
        for (int seg = 0; seg < 2; ++seg) {
            const int steps = seg == 0 ? 250 : 10;
            const auto header = u.Stream(4);
            ASSERT_EQ(header, (std::vector<uint8_t>{0xE1, 0x1E, static_cast<uint8_t>(seg), static_cast<uint8_t>(steps - 1)}));
            ASSERT_EQ(u.Stream(2048u * steps * 3).size(), 2048u * steps * 3);
        }
    }
    u.Send({'3'});
}

TEST(SimStream, LostHeaderAndWrongSizeFrame) {
    LoadBench(FourUnitBench());
    Unit u(10000004);
    u.Send(Segment(0, 1000, 3));
    qorsim_lose_frame_headers(10000004, 1);
    u.Send({'X', 1, 1});
    // The first frame arrives without its header: the next header follows 4 blocks later.
    const auto first = u.Stream(4 * 2048 + 4);
    ASSERT_EQ(first.size(), 4u * 2048 + 4);
    EXPECT_EQ(std::vector<uint8_t>(first.end() - 4, first.end()), (std::vector<uint8_t>{0xE1, 0x1E, 0, 3}));
    u.Stream(4 * 2048);
    qorsim_wrong_size_frames(10000004, 1);
    // The frame under way is sent whole; the one after it is a step short, and says so.
    u.Send({'3'});
    u.Stream(u.Queued());
    u.Send({'X', 1, 1});
    EXPECT_EQ(u.Stream(4), (std::vector<uint8_t>{0xE1, 0x1E, 0, 2}));
    u.Stream(3 * 2048);
    EXPECT_EQ(u.Stream(4), (std::vector<uint8_t>{0xE1, 0x1E, 0, 3}));
}

TEST(SimStream, DroppedAndCorruptedBytes) {
    LoadBench(FourUnitBench());
    Unit u(10000002);
    qorsim_drop_stream_bytes(10000002, 0, 2);
    u.Send({'S', 1});
    EXPECT_EQ(u.Stream(2), (std::vector<uint8_t>{0xF0, 0x0F}));
    EXPECT_EQ(u.Stream(2048).size(), 2048u);
    EXPECT_EQ(u.Queued(), 0u);
    qorsim_corrupt_stream_bytes(10000002, 1, 1);
    u.Send({'S', 1});
    EXPECT_EQ(u.Stream(4), (std::vector<uint8_t>{0xA5, 0x5A ^ 0xA5, 0xF0, 0x0F}));
}

TEST(SimStream, StalledStreamTimesOutAtTheScaledLimit) {
    LoadBench(FourUnitBench());
    Unit u(10000003);
    qorsim_stall_stream(10000003, 1);
    u.Send({'T'});
    EXPECT_EQ(u.Queued(), 0u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(u.Stream(16).empty()); // 1000 ms of the fast clock: 10 ms
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    qorsim_stall_stream(10000003, 0);
    EXPECT_EQ(u.Stream(4), kSync);
}

TEST(SimStream, RealtimePacingNeverDeliversAheadOfTheSampleRate) {
    LoadBench(FourUnitBench("realtime"));
    Unit u(10000002);
    const auto start = std::chrono::steady_clock::now();
    u.Send({'T'});
    u.Stream(4);
    // The read waits for data on its way, past the 10 ms time-out of the fast clock.
    ASSERT_EQ(u.Stream(4 * 16384).size(), 4u * 16384);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 4 * 4096 / 486111.11 * 0.99);
    u.Send({'3'});
}

TEST(SimStream, RealtimeOverflowLosesBlocks) {
    LoadBench(FourUnitBench("realtime"));
    Unit u(10000001);
    u.Send({'T'});
    std::this_thread::sleep_for(std::chrono::milliseconds(700)); // more than the 1 MiB FIFO holds
    EXPECT_GT(u.Queued(), 1000000u);
    EXPECT_GT(qorsim_lost_blocks(10000001), 0);
    u.Send({'3'});
}
