// `qor tg` as a user runs it on the virtual instrument: a thru stored and
// kept in a file, the device under test swapped in and written as CSV and a
// plot; a later run that takes the thru from that file.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "child_process.h"

namespace {

using ToolRun = testsupport::ChildRun;

// The default bench's generator is cabled to its type 4 unit.
ToolRun Qor(const std::string& arguments) {
    const char* tool = std::getenv("QOR_TOOL");
    return testsupport::RunChild("env -u QOR_D2XX_LIBRARY " + std::string(tool ? tool : "qor") + " " + arguments +
                                 " 2>&1");
}

// The s21_db column of the tool's CSV; a failure when the header is not its own.
std::vector<double> S21(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, "frequency_hz,s21_db");
    std::vector<double> values;
    double f, db;
    char comma;
    while (file >> f >> comma >> db) values.push_back(db);
    return values;
}

class ToolTg : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("QOR_TOOL") == nullptr) GTEST_SKIP() << "QOR_TOOL does not name the built tool";
    }
    const std::string dir = ::testing::TempDir();
    const std::string sweep = "tg --sim --start 1.9G --stop 2.1G --points 400 ";
    const std::string attenuator = R"( --dut '{"kind": "attenuator", "loss": 20}')";
};

TEST_F(ToolTg, ThruKeptInAFileServesALaterRun) {
    const std::string thru = dir + "/qor_tg_thru.csv", csv = dir + "/qor_tg.csv", png = dir + "/qor_tg.png";
    std::remove(png.c_str());
    const ToolRun stored = Qor(sweep + "--high-range --thru --save-thru " + thru + " --csv " + csv + " --png " + png +
                               attenuator);
    ASSERT_EQ(stored.exitCode, 0) << stored.output;
    const std::vector<double> first = S21(csv);
    ASSERT_EQ(first.size(), 401u);
    for (double v : first) EXPECT_NEAR(v, -20.0, 0.3);
    std::ifstream plot(png, std::ios::binary | std::ios::ate);
    EXPECT_GT(plot.tellg(), 20000);
    // The thru as measured against the generator's nominal level.
    for (double v : S21(thru)) EXPECT_NEAR(v, 0.0, 3.0);

    const ToolRun fromFile = Qor(sweep + "--thru-file " + thru + " --csv " + csv + attenuator);
    ASSERT_EQ(fromFile.exitCode, 0) << fromFile.output;
    const std::vector<double> second = S21(csv);
    ASSERT_EQ(second.size(), first.size());
    for (size_t i = 0; i < second.size(); ++i) EXPECT_NEAR(second[i], first[i], 0.3) << i;

    // A thru of other frequencies does not serve.
    const ToolRun other = Qor("tg --sim --start 1G --stop 2G --thru-file " + thru);
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_NE(other.output.find("--thru-file"), std::string::npos) << other.output;
}

TEST_F(ToolTg, BadArgumentsFailWithOneLine) {
    EXPECT_NE(Qor(sweep).exitCode, 0);  // neither --thru nor --thru-file
    EXPECT_NE(Qor("tg --sim --start 1G --thru").exitCode, 0);
    EXPECT_NE(Qor(sweep + "--thru --points 5").exitCode, 0);
    const ToolRun badDut = Qor(sweep + "--thru --dut '{\"kind\": \"cable\"}'");
    EXPECT_EQ(badDut.exitCode, 1);
    EXPECT_NE(badDut.output.find("device under test"), std::string::npos) << badDut.output;
}

}  // namespace
