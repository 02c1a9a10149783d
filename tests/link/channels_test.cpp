// Pairing of the unit's channels, the open sequence of the link and the framing.
#include <algorithm>

#include "link_fixture.h"

namespace qor::test {
namespace {

// A bus without units; the clock sped up for the pauses of an open.
class Channels : public ::testing::Test {
protected:
    void SetUp() override { os::SetClockScale(1000.0); }
    void TearDown() override { os::SetClockScale(1.0); }
    FakeBus bus;
    AnalyzerLink link{FakeBus::Table()};
};

TEST_F(Channels, PairsUnitsWhateverTheOrderOfTheirChannels) {
    bus.AddChannel("22222222", "Tarven Works B");
    bus.AddChannel("11111111", "Tarven Works A");
    bus.AddChannel("33333333", "Tarven Works B");
    bus.AddChannel("22222222", "Tarven Works A", FT_FLAGS_OPENED);  // held by another process
    bus.AddChannel("44444444", "Tarven Works A");                   // no B channel listed
    bus.AddChannel("11111111", "Tarven Works B");
    bus.AddChannel("33333333123", "Tarven Works A extra");  // serial and description cut to 8 and 14
    bus.AddChannel("55555555", "Other Maker A");
    int serials[8], stream[8], command[8];
    int pairs = 0;
    int channels = static_cast<int>(link.RefreshDeviceList());
    ASSERT_EQ(8, channels);
    link.EnumerateChannels(serials, stream, command, &pairs, &channels);

    EXPECT_EQ(2, pairs);
    EXPECT_EQ(11111111, serials[0]);
    EXPECT_EQ(1, stream[0]);
    EXPECT_EQ(5, command[0]);
    EXPECT_EQ(44444444, serials[1]);
    EXPECT_EQ(-1, command[1]);
    EXPECT_EQ(33333333, serials[2]);
    EXPECT_EQ(6, stream[2]);
    EXPECT_EQ(2, command[2]);
}

TEST_F(Channels, UnitsAreOpenedByTheirSerialOnFreshIndices) {
    bus.AddChannel("22222222", "Tarven Works B");
    bus.AddChannel("11111111", "Tarven Works A");
    bus.AddChannel("22222222", "Tarven Works A");
    bus.AddChannel("11111111", "Tarven Works B");
    EXPECT_EQ(AnalyzerLink::OpenResult::NotListed, link.OpenUnit(33333333));
    EXPECT_EQ(AnalyzerLink::OpenResult::Opened, link.OpenUnit(22222222));
    EXPECT_EQ((std::vector<std::string>{"Open 2", "Open 0"}),
              std::vector<std::string>(bus.calls.begin(), bus.calls.begin() + 2));
    // Serials that are not decimal count as zero.
    for (const auto& [text, serial] : {std::pair<const char*, int>{"12345678", 12345678}, {"1234", 1234},
                                       {"1234x678", 0}, {"", 0}})
        EXPECT_EQ(serial, DecimalSerial(text)) << text;
}

TEST_F(Channels, OpenConfiguresBothChannelsAndResetsTheUnit) {
    bus.AddUnit(kSerial);
    ASSERT_TRUE(link.Open(0, 1));
    const std::vector<std::string> calls = {"Open 0",          "Open 1",           "Baud 12345678B 46667",
                                            "Timeouts 12345678B 5000 5000", "Timeouts 12345678A 1000 1000",
                                            "Latency 12345678B 2", "Latency 12345678A 16"};
    EXPECT_EQ(calls, bus.calls);
    const std::vector<Bytes> frames = {{0x33, 0xC0}, {0x33, 0xC0}, {0x33, 0xC0},
                                       {0x4C, 0x00, 0x00, 0x4C, 0x42, 0xC0},
                                       {0x49, 0x00, 0x75, 0xC0}, {0x49, 0x38, 0x03, 0xC0}, {0x49, 0x00, 0x74, 0xC0},
                                       {0x49, 0x00, 0x70, 0xC0}, {0x49, 0x38, 0x00, 0xC0},
                                       {0x4C, 0x08, 0x00, 0x83, 0x21, 0xC0}};
    EXPECT_EQ(frames, bus.writes);
    EXPECT_TRUE(link.Open(0, 1)) << "an open link says so";
}

TEST(ChannelsOpen, RetriesTheStreamChannelTenTimes) {
    os::SetClockScale(1000.0);
    for (const int refusals : {9, 10}) {
        FakeBus bus;
        bus.AddUnit(kSerial);
        bus.StreamOf(kSerial).failOpens = refusals;
        AnalyzerLink link(FakeBus::Table());
        EXPECT_EQ(refusals < 10, link.Open(0, 1));
        EXPECT_EQ(refusals < 10, link.IsOpen());
        EXPECT_EQ(std::min(refusals + 1, 10), std::count(bus.calls.begin(), bus.calls.end(), "Open 0"));
    }
    os::SetClockScale(1.0);
}

TEST_F(Channels, AFailedCommandChannelLeavesNothingOpen) {
    bus.AddUnit(kSerial);
    bus.CommandOf(kSerial).failOpens = 1;
    EXPECT_FALSE(link.Open(0, 1));
    EXPECT_FALSE(link.IsOpen());
    EXPECT_FALSE(bus.StreamOf(kSerial).open);
    EXPECT_FALSE(link.Open(-1, 1));
}

TEST_F(LinkTest, FramesStuffTheEndAndEscapeBytes) {
    struct Case {
        Bytes payload;
        Bytes wire;
    };
    const Case cases[] = {
        {{}, {0xC0}},
        {{0x54}, {0x54, 0xC0}},
        {{0x4E, 0xC0, 0xDB, 0x01, 0x02}, {0x4E, 0xDB, 0xDC, 0xDB, 0xDD, 0x01, 0x02, 0xC0}},
        {{0xC0, 0xC0, 0xC0, 0xC0, 0xC0}, {0xDB, 0xDC, 0xDB, 0xDC, 0xDB, 0xDC, 0xDB, 0xDC, 0xDB, 0xDC, 0xC0}},
        {{0xDC, 0xDD}, {0xDC, 0xDD, 0xC0}},
    };
    for (const Case& c : cases) {
        bus.writes.clear();
        link.SendPayload(c.payload.data(), static_cast<int>(c.payload.size()));
        ASSERT_EQ(1u, bus.writes.size());
        EXPECT_EQ(Hex(c.wire), Hex(bus.writes[0])) << "payload " << Hex(c.payload);
    }
}

TEST_F(LinkTest, CloseReleasesBothChannelsStreamFirst) {
    link.EnableReferenceOutput();
    ASSERT_TRUE(link.ReferenceLocked());
    link.CyclePort();
    link.Close();
    EXPECT_EQ((std::vector<std::string>{"Cycle 12345678A", "Close 12345678A", "Close 12345678B"}), bus.calls);
    EXPECT_FALSE(link.IsOpen());
    EXPECT_FALSE(link.ReferenceLocked());
    link.Close();
    EXPECT_EQ(3u, bus.calls.size()) << "closing a closed link touches nothing";
}

TEST_F(LinkTest, SerialStringAndUserArea) {
    char serial[16];
    link.ReadSerialString(serial);
    EXPECT_STREQ(kSerial, serial);

    uint8_t area[16];
    for (int i = 0; i < 16; ++i) bus.userArea[i] = static_cast<uint8_t>(i);
    bus.userAreaCount = 12;
    EXPECT_EQ(12u, link.ReadUserArea(area));
    area[15] = 0x5A;
    link.WriteUserArea(area);
    EXPECT_EQ(0x5A, bus.userArea[15]);
}

}  // namespace
}  // namespace qor::test
