// The qor tool as a user runs it, on the virtual instrument: exit codes,
// messages, and the files of a sweep.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "child_process.h"

namespace {

using ToolRun = testsupport::ChildRun;

// Runs the tool as a user would: `--sim` alone must find the instrument, so
// the suite's QOR_D2XX_LIBRARY is not passed on.
ToolRun Qor(const std::string& arguments) {
    const char* tool = std::getenv("QOR_TOOL");
    return testsupport::RunChild("env -u QOR_D2XX_LIBRARY " + std::string(tool ? tool : "qor") + " " + arguments +
                                 " 2>&1");
}

class ToolCli : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("QOR_TOOL") == nullptr) GTEST_SKIP() << "QOR_TOOL does not name the built tool";
    }
};

TEST_F(ToolCli, ListsTheDefaultBench) {
    const ToolRun run = Qor("list --sim");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    for (const char* serial : {"11000001", "12000002", "13000003", "14000004"}) {
        EXPECT_NE(run.output.find(serial), std::string::npos) << serial;
    }
}

TEST_F(ToolCli, BadArgumentsAndMissingUnitsFailWithOneLine) {
    EXPECT_NE(Qor("").exitCode, 0);
    EXPECT_NE(Qor("frobnicate").exitCode, 0);
    EXPECT_NE(Qor("sweep --sim --detector peak").exitCode, 0);
    EXPECT_NE(Qor("sweep --sim --center 1G --start 1G --stop 2G").exitCode, 0);
    const ToolRun badNumber = Qor("sweep --sim --center 1X");
    EXPECT_EQ(badNumber.exitCode, 1);
    EXPECT_NE(badNumber.output.find("not a frequency"), std::string::npos) << badNumber.output;
    const ToolRun missing = Qor("info --sim --serial 99999999");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.output, "qor: qorOpenDeviceBySerialNumber: Device not found\n");
    const ToolRun outOfRange = Qor("sweep --sim --serial 12000002 --center 4.4G --span 100M");
    EXPECT_EQ(outOfRange.exitCode, 1);
    EXPECT_NE(outOfRange.output.find("qorConfigCenterSpan: Span outside frequency range"), std::string::npos);
    EXPECT_EQ(Qor("sweep --help").exitCode, 0);
}

TEST_F(ToolCli, SweepWritesCsvWithThePeakAndAPlot) {
    const std::string dir = ::testing::TempDir();
    const std::string csv = dir + "/qor_sweep.csv", png = dir + "/qor_sweep.png";
    std::remove(png.c_str());
    const ToolRun run = Qor("sweep --sim --serial 12000002 --center 1G --span 100k --rbw 1k --csv " + csv + " --png " + png);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    std::ifstream file(csv);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, "frequency_hz,min_dbm,max_dbm");
    double peakFrequency = 0, peakLevel = -1e9;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        double f, lo, hi;
        char comma;
        fields >> f >> comma >> lo >> comma >> hi;
        if (hi > peakLevel) {
            peakLevel = hi;
            peakFrequency = f;
        }
    }
    EXPECT_NEAR(peakFrequency, 1e9, 500.0);  // within a bin of the 1 GHz carrier
    EXPECT_NEAR(peakLevel, -30.0, 0.5);
    std::ifstream plot(png, std::ios::binary | std::ios::ate);
    EXPECT_GT(plot.tellg(), 20000);
    EXPECT_NE(run.output.find("-30.0"), std::string::npos) << run.output;
}

}  // namespace
