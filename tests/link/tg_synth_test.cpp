// The tracking generator's amplitude codes: the searches of both families
// against memories whose tables make each case's answer plain, with the
// hysteresis for the code in use, the rule of a generator without
// calibration, and the runs of a sweep's amplitude list.
#include <gtest/gtest.h>

#include <vector>

#include "tg_synth.h"

namespace qor {
namespace {

void PutI16(std::vector<uint8_t>& e, int at, int value) {
    e[at] = static_cast<uint8_t>(value & 0xFF);
    e[at + 1] = static_cast<uint8_t>((value >> 8) & 0xFF);
}

// 4.4 GHz family: every level entry `levelHundredths`, the stages exactly 1,
// 2, 4, 8 and 16 dB, so that code c attenuates c dB.
std::vector<uint8_t> VelmMemory(int levelHundredths) {
    std::vector<uint8_t> e(kTgMemoryBytes, 0);
    for (int i = 0; i < 482; ++i) PutI16(e, 68 + 2 * i, levelHundredths);
    for (int bit = 0; bit < 5; ++bit) {
        for (int j = 0; j < 222; ++j) PutI16(e, 1032 + 444 * bit + 2 * j, -100 * (1 << bit));
    }
    return e;
}

// 12.4 GHz family: every level byte `level` (units of -0.1 dB) and no
// attenuator error (byte 128 is 0 dB), so that code c attenuates c / 2 dB.
std::vector<uint8_t> OrskMemory(uint8_t level) {
    std::vector<uint8_t> e(kTgMemoryBytes, 0);
    for (int i = 68; i < 1404; ++i) e[i] = level;
    for (int i = 1404; i < kTgMemoryBytes; ++i) e[i] = 128;
    return e;
}

TEST(TgCodes, SearchesOfBothFamilies) {
    // 4.4 GHz family at level -5 dB: from 28 MHz the base is less 0.7 dB and
    // plus f x 1e-10. 12.4 GHz family at level byte 100, -10 dB, to which the
    // model adds 8 dB: code c gives -2 - c / 2 dB less the band's adjustment.
    const std::vector<uint8_t> velm = VelmMemory(-500), orsk = OrskMemory(100);
    const struct {
        bool orsk;
        double frequency, amplitude;
        int previous, code;
    } cases[] = {
        {false, 1e9, -20.0, -1, 14},   // base -5.6: 14.4 dB to go, 14 is nearer than 15
        {false, 1e9, -20.0, 15, 15},   // 15 is 0.6 off, less the bonus of the code in use
        {false, 1e9, -20.0, 13, 14},   // 13 is 1.4 off, 0.7 even with the bonus: 14 stays better
        {false, 10e6, -19.5, -1, 14},  // a tie of 0.5 and 0.5: the lower code
        {false, 1e9, -5.0, -1, 0},     // above what code 0 gives
        {false, 1e9, -45.0, -1, 31},   // below what code 31 gives
        {false, 10e6, -20.0, -1, 15},  // below 28 MHz no adjustment: 15 dB under -5
        {false, 3e9, -20.0, -1, 15},   // base -5.4: 14.6 to go
        {true, 1e9, -20.0, -1, 35},    // -2.7 - c/2: 34.6 -> 35 (0.2 off) beats 34 (0.3 off)
        {true, 1e9, -20.0, 34, 34},    // the code in use, 0.3 - 0.7
        {true, 1e9, -20.0, 36, 36},    // 35 is only 0.5 nearer than the code in use
        {true, 2.7e9, -20.0, -1, 35},  // adjustment 0.5 between 2.2 and 3.2 GHz: 35 exactly
        {true, 8e9, -20.0, -1, 35},    // from 7.2 GHz 0.7 again
        {true, 5e9, -20.0, -1, 35},    // from 3.2 GHz 0.3: 35.4 -> 35
        {true, 200e3, -20.0, -1, 36},  // below 250 kHz 0.2 up: 36.4 -> 36
        {true, 100e3, -20.0, -1, 37},  // below 150 kHz 0.4 up: 36.8 -> 37
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.code, c.orsk ? OrskTgCode(orsk.data(), c.frequency, c.amplitude, c.previous)
                                 : VelmTgCode(velm.data(), c.frequency, c.amplitude, c.previous))
            << (c.orsk ? "12.4 GHz family, " : "4.4 GHz family, ") << c.frequency << " Hz, " << c.amplitude
            << " dBm, previous " << c.previous;
    }
}

TEST(TgCodes, OrskAttenuatorErrorsMoveTheChoice) {
    std::vector<uint8_t> e = OrskMemory(100);
    // Row of 1 GHz: the group of codes 32..39 reads 0.6 dB less attenuation.
    e[1404 + 16 * 10 + 5] = static_cast<uint8_t>(128 + 30);
    EXPECT_EQ(36, OrskTgCode(e.data(), 1e9, -20.0, -1));  // -2.7 + 0.6 - 18: 0.1 off
    EXPECT_EQ(35, OrskTgCode(e.data(), 1.2e9, -20.0, -1));  // another row: as before
}

TEST(TgCodes, UncalibratedRuleCutsTowardsZero) {
    const std::vector<uint8_t> e(kTgMemoryBytes, 0x80);
    const TgMemory memory{e.data(), false, false};
    const std::pair<double, int> cases[] = {{-10.0, 5}, {-30.0, 25}, {-20.5, 15}, {-20.9, 15}, {-21.0, 16}};
    for (const auto& [amplitude, code] : cases) EXPECT_EQ(code, TgAmplitudeCode(memory, 1e9, amplitude, 4));
}

TEST(TgLists, RunsOfEqualCodes) {
    // Levels: -5 dB up to 550 MHz, -3 dB from there; at -20 dBm code 14, then 16.
    std::vector<uint8_t> e = VelmMemory(-500);
    for (int i = 0; i < 56; ++i) PutI16(e, 252 + 2 * i, -300);
    const TgMemory memory{e.data(), true, false};
    AmplitudeList list;
    BuildAmplitudeList(list, memory, -20.0, 500e6, 10e6, 11);
    ASSERT_EQ(2, list.length);
    EXPECT_EQ(11, list.points);
    EXPECT_EQ(14, list.code[0]);
    EXPECT_EQ(5, list.run[0]);
    EXPECT_EQ(16, list.code[1]);
    EXPECT_EQ(7, list.run[1]);  // the last run is one longer than its points

    BuildAmplitudeList(list, memory, -20.0, 100e6, 1e6, 200);
    ASSERT_EQ(1, list.length);
    EXPECT_EQ(201, list.run[0]);
}

TEST(TgLists, EntriesRunOutIntoTheLast) {
    // The stage of bit 0 is 3 dB in every other 20 MHz row: at -6.6 dBm the
    // code alternates from point to point, and the entries run out.
    std::vector<uint8_t> e = VelmMemory(-500);
    for (int j = 0; j < 222; j += 2) PutI16(e, 1032 + 2 * j, -300);
    const TgMemory memory{e.data(), true, false};
    AmplitudeList list;
    BuildAmplitudeList(list, memory, -6.6, 28e6, 20e6, 100);
    EXPECT_EQ(kTgListEntries, list.length);
    int covered = 0;
    for (int i = 0; i < list.length; ++i) covered += list.run[i];
    EXPECT_EQ(101, covered);
    EXPECT_EQ(TgAmplitudeCode(memory, 28e6 + 99 * 20e6, -6.6, list.code[62]), list.code[63]);
}

}  // namespace
}  // namespace qor
