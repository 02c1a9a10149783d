// The command-line tool's own logic: SI numbers, peaks, ticks and its files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "peak_table.h"
#include "peaks.h"
#include "plot.h"
#include "si_units.h"
#include "trace_csv.h"

namespace {

using qortool::ParseSi;

TEST(SiUnits, ParsesSuffixesAndRefusesJunk) {
    EXPECT_DOUBLE_EQ(*ParseSi("2.4G"), 2.4e9);
    EXPECT_DOUBLE_EQ(*ParseSi("100M"), 1e8);
    EXPECT_DOUBLE_EQ(*ParseSi("10k"), 1e4);
    EXPECT_DOUBLE_EQ(*ParseSi("10kHz"), 1e4);
    EXPECT_DOUBLE_EQ(*ParseSi("1.5e6"), 1.5e6);
    EXPECT_DOUBLE_EQ(*ParseSi("-3"), -3.0);
    for (const char* bad : {"", "G", "10x", "1.0GG", "nan", "1 M"}) EXPECT_FALSE(ParseSi(bad)) << bad;
    EXPECT_EQ(qortool::FormatHz(2.4e9), "2.4 GHz");
    EXPECT_EQ(qortool::FormatHz(950.0), "950 Hz");
}

std::vector<double> Floor(int n) { return std::vector<double>(static_cast<std::size_t>(n), -100.0); }

// The bins of the peaks found, strongest first.
std::vector<int> Bins(const std::vector<qortool::Peak>& peaks) {
    std::vector<int> bins;
    for (const auto& p : peaks) bins.push_back(p.bin);
    return bins;
}

// Strongest first, ripple below the prominence ignored, a peak on the edge
// counted, and the shoulder of a stronger peak (1 dB above the dip between
// them) no peak of its own.
TEST(Peaks, StrongestFirstAndNoiseAndShouldersIgnored) {
    std::vector<double> trace = Floor(100);
    for (int i = 0; i < 100; ++i) trace[static_cast<std::size_t>(i)] += (i % 3) * 1.0;
    trace[20] = -30.0;
    trace[21] = -35.0;
    trace[70] = -50.0;
    trace[99] = -60.0;
    trace[10] = -40.0;
    trace[11] = -45.0;
    trace[12] = -44.0;
    const auto peaks = qortool::StrongestPeaks(trace, 1e6, 1e3, 10);
    EXPECT_EQ(Bins(peaks), (std::vector<int>{20, 10, 70, 99}));
    EXPECT_DOUBLE_EQ(peaks[0].frequency, 1e6 + 20e3);
    EXPECT_EQ(qortool::StrongestPeaks(trace, 0, 1, 1).size(), 1u);
}

TEST(Peaks, FlatTopIsReportedAtItsCentreWithItsHighestLevel) {
    std::vector<double> trace = Floor(100);
    // Bins 40 to 45 within 0.1 dB of the highest (41); 39 just outside. Past
    // the dip at 46, bin 47 is as high again but no part of this top.
    const double top[] = {-30.2, -30.05, -30.0, -30.08, -30.03, -30.09, -30.06, -36.0, -30.02};
    for (int k = 0; k < 9; ++k) trace[static_cast<std::size_t>(39 + k)] = top[k];
    // A single highest bin, and a top of three equal bins.
    trace[70] = -40.0;
    trace[71] = -41.0;
    trace[80] = trace[81] = trace[82] = -50.0;
    const auto peaks = qortool::StrongestPeaks(trace, 1e6, 1e3, 10);
    ASSERT_EQ(peaks.size(), 3u);
    EXPECT_EQ(peaks[0].bin, 41);
    EXPECT_DOUBLE_EQ(peaks[0].level, -30.0);
    EXPECT_DOUBLE_EQ(peaks[0].frequency, 1e6 + 42.5e3);
    EXPECT_DOUBLE_EQ(peaks[1].frequency, 1e6 + 70e3);
    EXPECT_DOUBLE_EQ(peaks[2].frequency, 1e6 + 81e3);
}

// Levels within 20 dB of the noise (the median, which a strong signal over a
// third of the span does not lift) are marked, in the table too.
TEST(Peaks, LevelsWithinTwentyDbOfTheNoiseAreMarked) {
    std::vector<double> trace = Floor(200);
    for (int i = 0; i < 200; ++i) trace[static_cast<std::size_t>(i)] += (i % 5) * 0.5;  // noise, -100 to -98
    trace[30] = -81.0;  // 17.5 dB above the floor (-98.5)
    trace[60] = -78.0;  // 20.5 dB
    trace[90] = -20.0;
    for (int i = 120; i < 186; ++i) trace[static_cast<std::size_t>(i)] = -60.0 - 0.01 * std::abs(i - 150);
    const auto peaks = qortool::StrongestPeaks(trace, 0, 1, 10);
    ASSERT_EQ(peaks.size(), 4u);
    EXPECT_EQ(Bins(peaks)[2], 60);
    EXPECT_EQ(Bins(peaks)[3], 30);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(peaks[i].noiseBiased, i == 3) << i;
    const std::vector<qortool::Peak> clean = {{10, 1e9, -30.0, false}};
    const std::string table = qortool::PeakTable(clean, false);
    EXPECT_EQ(table.find('*'), std::string::npos) << table;
    const std::string marked = qortool::PeakTable({clean[0], {20, 2.4e9, -95.5, true}}, false);
    EXPECT_NE(marked.find("-95.50*\n"), std::string::npos) << marked;
    EXPECT_NE(marked.find("-30.00\n"), std::string::npos) << marked;
    const std::string note = std::string(qortool::kNoiseBiasedNote) + "\n";
    EXPECT_EQ(marked.substr(marked.size() - note.size()), note);
}

TEST(Plot, TicksAreRoundAndCoverTheRange) {
    const auto ticks = qortool::NiceTicks(0.95e9, 1.05e9, 10);
    ASSERT_FALSE(ticks.empty());
    EXPECT_DOUBLE_EQ(ticks.front(), 0.95e9);
    EXPECT_NEAR(ticks[1] - ticks[0], 1e7, 1.0);
    EXPECT_LE(ticks.back(), 1.05e9 + 1.0);
    EXPECT_EQ(qortool::NiceTicks(-120, 0, 6).front(), -120.0);
    EXPECT_TRUE(qortool::NiceTicks(5, 5, 4).empty());
}

TEST(ToolFiles, CsvOfATrace) {
    qortool::Trace trace;
    trace.startFreq = 1e9;
    trace.binSize = 1e4;
    trace.min = Floor(1001);
    trace.max = Floor(1001);
    for (int i = 0; i < 1001; ++i) trace.max[static_cast<std::size_t>(i)] = -90.0 + 60.0 * std::exp(-0.01 * (i - 500) * (i - 500));
    const std::string dir = ::testing::TempDir();
    ASSERT_TRUE(qortool::WriteTraceCsv(dir + "/trace.csv", trace));
    std::ifstream csv(dir + "/trace.csv");
    std::string header, first;
    std::getline(csv, header);
    std::getline(csv, first);
    EXPECT_EQ(header, "frequency_hz,min_dbm,max_dbm");
    EXPECT_EQ(first.substr(0, first.find(',')), "1000000000.000");
    EXPECT_FALSE(qortool::WriteTraceCsv("/nonexistent-dir/x.csv", trace));
}

}  // namespace
