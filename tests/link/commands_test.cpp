// The exact frames of the command set and the parsing of its replies (the
// calibration reads' frames are checked in the calibration suite).
#include <functional>

#include "link_fixture.h"

namespace qor::test {
namespace {

struct CommandCase {
    const char* name;
    int deviceType;
    std::function<void(AnalyzerLink&)> action;
    std::vector<Bytes> frames;
};

// The four frames of a synthesizer tuning.
std::vector<Bytes> Synth(uint8_t dividerWord, uint8_t outboard, uint8_t m1, uint8_t m2, uint8_t i1, uint8_t i2,
                         uint8_t i3) {
    return {{0x4C, 0x00, dividerWord, 0x41, 0xBC, 0xC0},
            {0x44, outboard, 0xC0},
            {0x4C, 0x08, 0x00, m1, m2, 0xC0},
            {0x4C, 0x00, i1, i2, i3, 0xC0}};
}

TEST_F(LinkTest, EachCommandSendsItsExactFrames) {
    const CommandCase cases[] = {
        {"attenuation in 5 dB steps", 2, [](AnalyzerLink& l) { l.SetAttenuation(15.0); }, {{0x41, 0x03, 0xC0}}},
        {"attenuation in 10 dB steps", 4, [](AnalyzerLink& l) { l.SetAttenuation(30.0); },
         {{0x41, 0x03, 0xC0}}},
        {"tune 4.4 GHz", 2, [](AnalyzerLink& l) { l.TuneLO(4.4e9); }, Synth(0x86, 0x04, 0x83, 0x21, 0xDC, 0x00, 0x00)},
        // 149.9 MHz is divided: x16 gives 2398.4 MHz, integer 239 (odd), fraction 84.
        {"tune 149.9 MHz", 2, [](AnalyzerLink& l) { l.TuneLO(1.499e8); },
         Synth(0x96, 0x00, 0x83, 0x21, 0x77, 0x82, 0xA0)},
        {"tune just above 149.9 MHz", 2, [](AnalyzerLink& l) { l.TuneLO(149900001.0); },
         Synth(0xC6, 0x04, 0x83, 0x21, 0x77, 0x82, 0xA0)},
        {"divided by 2^8 splits 3 outboard, 2 inside", 2,
         [](AnalyzerLink& l) { l.ProgramSynthDivided(300, 7, 25, 8); }, Synth(0xA6, 0x03, 0x80, 0xC9, 0x96, 0x00, 0x38)},
        {"divided by 2^5 splits 1 and 1", 2, [](AnalyzerLink& l) { l.ProgramSynthDivided(300, 7, 25, 5); },
         Synth(0x96, 0x01, 0x80, 0xC9, 0x96, 0x00, 0x38)},
        {"gain registers", 2, [](AnalyzerLink& l) { l.SetGainRegisters(0x80, 0x00); },
         {{0x49, 0x06, 0x80, 0xC0}, {0x49, 0x0C, 0x00, 0xC0}}},
        {"segment of 250 steps", 4, [](AnalyzerLink& l) { l.LoadSweepSegment(1, 0x1234, 249); },
         {{0x59, 0x01, 0xF9, 0x34, 0x12, 0xC0}}},
        {"gate window with stuffed values", 2, [](AnalyzerLink& l) { l.SetGateWindow(0xDB, 0xC0DB); },
         {{0x4E, 0xDB, 0xDD, 0x00, 0xDB, 0xDD, 0xDB, 0xDC, 0xC0}}},
        {"framed sequence", 2, [](AnalyzerLink& l) { l.StartFrames(3, 2); }, {{0x58, 0x03, 0x02, 0xC0}}},
        {"path twice, then another", 3, [](AnalyzerLink& l) { l.SetOrskPath(2); l.SetOrskPath(2); l.SetOrskPath(1); },
         {{0x41, 0x8A, 0xC0}, {0x41, 0x87, 0xC0}}},
        {"preamp on type 2", 2, [](AnalyzerLink& l) { l.SetPreamp(true); l.SetPreamp(false); },
         {{0x4D, 0x01, 0xC0}, {0x41, 0x02, 0xC0}, {0x4D, 0x00, 0xC0}}},
        {"preamp elsewhere", 1,
         [](AnalyzerLink& l) {
             l.SetPreamp(true);
             l.Identify(DeviceFamily(4), false);
             l.SetPreamp(true);
         },
         {}},
        {"path filter, 12.4 GHz family", 3, [](AnalyzerLink& l) { l.SetPathFilter(1, 3); l.SetPathFilter(0, 7); },
         {{0x46, 0x1A, 0xC0}, {0x46, 0x0B, 0xC0}}},
        {"path filter, 4.4 GHz family", 2, [](AnalyzerLink& l) { l.SetPathFilter(1, 3); }, {{0x46, 0x01, 0xC0}}},
        {"gated sweep", 2, [](AnalyzerLink& l) { l.StartGatedSweep(5, 0x100); l.StopGatedSweep(); },
         {{0x4F, 0x02, 0xC0}, {0x47, 0x05, 0x00, 0x00, 0x01, 0xC0}, {0x4F, 0x00, 0xC0},
          {0x47, 0x00, 0x00, 0x00, 0x00, 0xC0}}},
        {"IF attenuator, type 4", 4, [](AnalyzerLink& l) { l.SetIFAttenLow(); l.SetIFAttenHigh(); },
         {{0x41, 0x41, 0xC0}, {0x41, 0x55, 0xC0}}},
        {"IF attenuator, others", 3, [](AnalyzerLink& l) { l.SetIFAttenLow(); l.SetIFAttenHigh(); },
         {{0x41, 0x4B, 0xC0}, {0x41, 0x69, 0xC0}}},
        {"oscillator DAC and trims", 4,
         [](AnalyzerLink& l) { l.SetOcxoDac(0x1234); l.SetZ2(0x0102); l.SetClockShift(3); },
         {{0x52, 0x66, 0x34, 0x12, 0xC0}, {0x5A, 0x32, 0x02, 0x01, 0xC0}, {0x5A, 0x33, 0x03, 0xC0}}},
        {"self-test source and divider", 2,
         [](AnalyzerLink& l) { l.SetSelfTestSource(true); l.SetSelfTestSource(false); l.SetDividerFour(); },
         {{0x4F, 0x01, 0xC0}, {0x4F, 0x00, 0xC0}, {0x44, 0x04, 0xC0}}},
        {"reference output once", 4,
         [](AnalyzerLink& l) { l.EnableReferenceOutput(); l.EnableReferenceOutput(); l.ReleaseReference(); },
         {{0x43, 0x01, 0xC0}, {0x43, 0x00, 0xC0}}},
        {"sample clock reinitialises the ADC", 2, [](AnalyzerLink& l) { l.SelectSampleClock(1); },
         {{0x43, 0x09, 0xC0}, {0x49, 0x00, 0x75, 0xC0}, {0x49, 0x38, 0x03, 0xC0}, {0x49, 0x00, 0x74, 0xC0},
          {0x49, 0x00, 0x70, 0xC0}, {0x49, 0x38, 0x00, 0xC0}}},
    };
    for (const CommandCase& c : cases) {
        SCOPED_TRACE(c.name);
        bus.writes.clear();
        link.Identify(DeviceFamily(c.deviceType), false);
        c.action(link);
        ASSERT_EQ(c.frames.size(), bus.writes.size());
        for (size_t i = 0; i < c.frames.size(); ++i) EXPECT_EQ(Hex(c.frames[i]), Hex(bus.writes[i])) << "frame " << i;
    }
}

TEST_F(LinkTest, IFOutputTunesBelowTheInputOnBandOne) {
    // 1 GHz out at 36 MHz, LO below: 964 MHz, x4 = 3856 MHz, integer 385 (0xC0 after
    // halving, so stuffed) and fraction 3/5; path 3 for band 1.
    link.Identify(DeviceFamily(3), false);
    link.TuneIFOutput(1e9, 3.6e7, 5, 10, 1);
    const std::vector<Bytes> frames = {
        {0x41, 0x8E, 0xC0},
        {0x4C, 0x00, 0xA6, 0x41, 0xBC, 0xC0},
        {0x44, 0x04, 0xC0},
        {0x4C, 0x08, 0x00, 0x80, 0x29, 0xC0},
        {0x4C, 0x00, 0xDB, 0xDC, 0x80, 0x18, 0xC0},
        {0x46, 0x39, 0xC0},
        {0x41, 0x4B, 0xC0},
        {0x41, 0x05, 0xC0},
    };
    EXPECT_EQ(frames, bus.writes);
    EXPECT_TRUE(link.IFOutputOn());
}

TEST_F(LinkTest, SweepWindowTrimsTheClockOfTypeFourOnce) {
    const Bytes window = {0x4E, 0x6B, 0x00, 0x30, 0x75, 0xC0};  // 107 .. 30000
    link.Identify(DeviceFamily(4), false);
    link.SetSweepWindow(107, 30000);  // 107 / 107 odd: no shift, but always said on type 4
    link.SetSweepWindow(214, 30000);  // even: shift 3
    link.SetSweepWindow(214, 20000);  // outside the trim range: shift back to 0 once
    link.SetSweepWindow(214, 20000);
    const std::vector<Bytes> frames = {
        {0x5A, 0x33, 0x00, 0xC0}, window,
        {0x5A, 0x33, 0x03, 0xC0}, {0x4E, 0xD6, 0x00, 0x30, 0x75, 0xC0},
        {0x5A, 0x33, 0x00, 0xC0}, {0x4E, 0xD6, 0x00, 0x20, 0x4E, 0xC0},
        {0x4E, 0xD6, 0x00, 0x20, 0x4E, 0xC0},
    };
    EXPECT_EQ(frames, bus.writes);

    bus.writes.clear();
    link.Identify(DeviceFamily(1), false);  // tunes the first step's LO first: 100 x 200 kHz = 20 MHz
    link.SetSweepWindow(100, 200);
    ASSERT_EQ(5u, bus.writes.size());
    EXPECT_EQ(Hex({0x44, 0x03, 0xC0}), Hex(bus.writes[1])) << "20 MHz is divided by 2^7: 3 outboard";
    EXPECT_EQ(Hex({0x4E, 0x64, 0x00, 0xC8, 0x00, 0xC0}), Hex(bus.writes[4]));
}

TEST_F(LinkTest, RepliesAreParsed) {
    link.Identify(DeviceFamily(2), true);
    // Positive temperatures and the supply of both families are read through
    // the library in the end-to-end open tests.
    bus.Expect({0x4B, 0x00, 0xC0}, {0x1F, 0xFF});
    EXPECT_FLOAT_EQ(-0.0625f, link.ReadTemperature());
    bus.Expect({0x4B, 0x00, 0xC0});
    EXPECT_FLOAT_EQ(0.0f, link.ReadTemperature()) << "no reply reads as zero";
    bus.Expect({0x55, 0x00, 0xC0});
    EXPECT_FLOAT_EQ(5.0f, link.ReadVoltage()) << "nothing received";

    link.Identify(DeviceFamily(4), true);
    bus.Expect({0x52, 0x78, 0xC0}, {0x00, 0xC2});
    int raw = 0;
    EXPECT_TRUE(link.ReadOcxoWarmup(&raw));
    EXPECT_EQ(194, raw);
    bus.Expect({0x52, 0x61, 0xC0}, {0x01, 0x00});
    EXPECT_FLOAT_EQ(41.2416f, link.ReadOcxoCurrent());
    bus.Expect({0x52, 0x6A, 0xC0}, {0x12, 0x34});
    link.ReadOcxoStatus();

    bus.Expect({0x42, 0x64, 0x00, 0x6D, 0x00, 0xC0}, {1, 2, 3, 4, 5, 6});
    uint8_t table[8] = {};
    EXPECT_EQ(6u, link.ReadSweepTable(100, 109, table)) << "3 steps of 3 MHz, 2 bytes each";
    EXPECT_TRUE(bus.ScriptDone());
}

TEST_F(LinkTest, FirmwareStringIsCutAndTerminated) {
    const std::string longReply = "VELM-3-1-0-2024-11";  // 18 bytes, more than fit
    bus.Expect({0x56, 0xC0}, Bytes(longReply.begin(), longReply.end()));
    char firmware[16];
    link.ReadFirmwareString(firmware);
    EXPECT_EQ(longReply.substr(0, 15), std::string(firmware));
    EXPECT_EQ((std::vector<std::string>{"Timeouts 12345678B 500 500", "Timeouts 12345678B 5000 5000"}), bus.calls);

    bus.CommandOf(kSerial).rx.clear();
    bus.Expect({0x56, 0xC0}, {'a', 'b', 'c'});
    link.ReadFirmwareString(firmware);
    EXPECT_STREQ("abc", firmware);
    bus.Expect({0x56, 0xC0});
    link.ReadFirmwareString(firmware);
    EXPECT_STREQ("", firmware) << "a silent unit gives an empty string";
}

}  // namespace
}  // namespace qor::test
