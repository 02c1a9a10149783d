// The qor tool as a user runs it, on the virtual instrument: exit codes,
// messages, the files of a sweep, the I/Q of a recording, audio and `qor tg`.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "audio_analysis.h"
#include "child_process.h"
#include "sim_bench.h"

namespace {

using ToolRun = testsupport::ChildRun;

// Runs the tool as a user would: `--sim` alone must find the instrument, so
// the suite's QOR_D2XX_LIBRARY is not passed on. Its stderr joins the output
// unless `stderrTo` sends it elsewhere.
ToolRun Qor(const std::string& arguments, const std::string& stderrTo = "&1") {
    const char* tool = std::getenv("QOR_TOOL");
    return testsupport::RunChild("env -u QOR_D2XX_LIBRARY " + std::string(tool ? tool : "qor") + " " + arguments +
                                 " 2>" + stderrTo);
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
    for (const char* bad : {"--out x", "--samples 10 --seconds 1 --out x", "--samples 10 --decimation 3 --out x",
                            "--samples 10 --atten 1 --out x"}) {
        EXPECT_NE(Qor(std::string("iq --sim --center 1G ") + bad).exitCode, 0) << bad;
    }
    EXPECT_EQ(Qor("iq --sim --center 1G --samples 10 --bandwidth wide --out x").output,
              "qor: --bandwidth: not a frequency: wide\n");
}

// The rows of one of the tool's CSV files; a failure when its header is not `header`.
std::vector<std::vector<double>> ReadCsv(const std::string& path, const std::string& header) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, header) << path;
    std::vector<std::vector<double>> rows;
    while (std::getline(file, line)) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line);
        rows.emplace_back(std::istream_iterator<double>(fields), std::istream_iterator<double>());
    }
    return rows;
}

struct Bin {
    double frequency = 0.0;
    double level = -1e9;
};

// The strongest bin of the maximum trace in a sweep's CSV between `low` and `high` Hz.
Bin StrongestInCsv(const std::string& path, double low = 0.0, double high = 1e12) {
    Bin strongest;
    for (const auto& row : ReadCsv(path, "frequency_hz,min_dbm,max_dbm")) {
        if (row.size() == 3 && row[0] >= low && row[0] <= high && row[2] > strongest.level) strongest = {row[0], row[2]};
    }
    return strongest;
}

// The bytes of a file.
std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The size of a file; -1 when there is none.
long long FileSize(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    return file ? static_cast<long long>(file.tellg()) : -1;
}

TEST_F(ToolCli, SweepWritesCsvWithThePeakAndAPlot) {
    const std::string dir = ::testing::TempDir();
    const std::string csv = dir + "/qor_sweep.csv", png = dir + "/qor_sweep.png";
    std::remove(png.c_str());
    const ToolRun run = Qor("sweep --sim --serial 12000002 --center 1G --span 100k --rbw 1k --csv " + csv + " --png " + png);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    const Bin peak = StrongestInCsv(csv);
    EXPECT_NEAR(peak.frequency, 1e9, 500.0);  // within a bin of the 1 GHz carrier
    EXPECT_NEAR(peak.level, -30.0, 0.5);
    EXPECT_GT(FileSize(png), 20000);
    EXPECT_NE(run.output.find("-30.0"), std::string::npos) << run.output;
}

// The default bench's 868.3 MHz burst in real time: the last frame sweep
// holds it at its level, a persistence image is written for the run and one
// per frame into the folder.
TEST_F(ToolCli, RealTimeWritesThePersistenceImageAndTheFrameSweep) {
    const std::string dir = ::testing::TempDir() + "/qor_realtime";
    const std::string csv = dir + ".csv", png = dir + ".png";
    std::remove(png.c_str());
    const ToolRun run = Qor("realtime --sim --serial 12000002 --center 868.3M --span 100k --rbw 3k --frames 3 --png " +
                            png + " --png-dir " + dir + " --sweep-csv " + csv);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const Bin peak = StrongestInCsv(csv);
    EXPECT_NEAR(peak.frequency, 868.3e6, 1000.0);
    EXPECT_NEAR(peak.level, -40.0, 0.5);
    for (const std::string& image : {png, dir + "/frame-0001.png", dir + "/frame-0003.png"}) {
        EXPECT_GT(FileSize(image), 20000) << image;
    }
}

// A unit whose only signal is a -40 dBm tone 10 kHz above the centre of
// the recordings below.
constexpr double kCenter = 433.92e6, kToneOffset = 10e3, kToneLevel = -40.0;
constexpr double kRate = 486111.1111111111 / 8;  // at --decimation 8

// `--sim --bench` with unit 15000005 alone, carrying `signal`.
std::string BenchWith(const simbench::Signal& signal) {
    simbench::Bench bench;
    bench.units.push_back(simbench::Unit(15000005, 2).Add(signal));
    // One file per test: ctest runs the tests side by side.
    const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string path = ::testing::TempDir() + "/" + test + ".bench.json";
    std::ofstream(path) << simbench::Json(bench);
    return "--sim --bench " + path + " ";
}

// That unit with its tone at `level`.
std::string ToneBench(double level = kToneLevel) { return BenchWith(simbench::Cw(kCenter + kToneOffset, level)); }

std::string ToneRecording() { return "iq " + ToneBench() + "--center 433.92M --decimation 8 "; }

double MeanPowerDbm(const std::vector<std::complex<float>>& iq) {
    double sum = 0.0;
    for (const auto& v : iq) sum += std::norm(std::complex<double>(v));
    return 10.0 * std::log10(sum / static_cast<double>(iq.size()));
}

// The power (dBm) of the component of `iq` at `hz`, by one DFT bin.
double PowerAtDbm(const std::vector<std::complex<float>>& iq, double hz, double rate) {
    std::complex<double> sum = 0;
    for (size_t n = 0; n < iq.size(); ++n) sum += std::complex<double>(iq[n]) * std::polar(1.0, -2 * M_PI * hz * n / rate);
    return 10.0 * std::log10(std::norm(sum / static_cast<double>(iq.size())));
}

TEST_F(ToolCli, IqRecordsAToneAsSigmf) {
    const std::string name = ::testing::TempDir() + "/qor_iq_tone";
    const ToolRun run = Qor(ToneRecording() + "--samples 8192 --out " + name);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    const std::string bytes = Slurp(name + ".sigmf-data");
    ASSERT_EQ(bytes.size(), 8192 * sizeof(std::complex<float>));
    std::vector<std::complex<float>> iq(8192);
    std::memcpy(iq.data(), bytes.data(), bytes.size());
    EXPECT_NEAR(MeanPowerDbm(iq), kToneLevel, 0.5);
    // All of it at the tone's offset, in the last block of 2048 (a loss would start
    // a new segment between blocks only).
    EXPECT_NEAR(PowerAtDbm({iq.end() - 2048, iq.end()}, kToneOffset, kRate), kToneLevel, 0.5);

    const nlohmann::json meta = nlohmann::json::parse(Slurp(name + ".sigmf-meta"));
    EXPECT_NEAR(meta["global"]["core:sample_rate"].get<double>(), kRate, 1e-6);
    EXPECT_NE(meta["global"]["core:hw"].get<std::string>().find("15000005"), std::string::npos);
    EXPECT_EQ(meta["captures"][0]["core:sample_start"], 0);
    EXPECT_DOUBLE_EQ(meta["captures"][0]["core:frequency"].get<double>(), kCenter);
}

TEST_F(ToolCli, IqStreamsCs16ToStdoutWithNothingElse) {
    const ToolRun run = Qor(ToneRecording() + "--samples 5000 --format cs16 --out -", "/dev/null");
    ASSERT_EQ(run.exitCode, 0);
    ASSERT_EQ(run.output.size(), 5000 * 2 * sizeof(std::int16_t));
    std::vector<std::int16_t> raw(2 * 5000);
    std::memcpy(raw.data(), run.output.data(), run.output.size());
    std::vector<std::complex<float>> iq(5000);
    for (std::size_t i = 0; i < iq.size(); ++i) iq[i] = {raw[2 * i] / 32767.0f, raw[2 * i + 1] / 32767.0f};
    EXPECT_NEAR(MeanPowerDbm(iq), kToneLevel, 0.5);
}

// A wide sweep shows the tone's image 21.4 MHz below it, as strong as the
// tone, only when rejection is turned off.
TEST_F(ToolCli, SweepRejectsImagesUnlessTurnedOff) {
    const double tone = kCenter + kToneOffset, image = tone - 21.4e6;
    const std::string csv = ::testing::TempDir() + "/qor_sweep_images.csv";
    const std::string sweep = "sweep " + ToneBench() + "--center 420M --span 100M --rbw 30k --csv " + csv;
    for (const char* rejection : {"", "--reject"}) {
        const ToolRun run = Qor(sweep + " " + rejection);
        ASSERT_EQ(run.exitCode, 0) << run.output;
        EXPECT_NEAR(StrongestInCsv(csv).level, kToneLevel, 0.5) << rejection;
        EXPECT_LT(StrongestInCsv(csv, image - 1e6, image + 1e6).level, kToneLevel - 40.0) << rejection;
    }
    const ToolRun run = Qor(sweep + " --no-reject");
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NEAR(StrongestInCsv(csv, image - 1e6, image + 1e6).level, kToneLevel, 3.0);
}

// A tone far above the reference level overloads the IF: the sweep says so
// on stderr, once however often the library reports it, and still reports.
TEST_F(ToolCli, SweepWarnsOfAnOverloadedIfAndGoesOn) {
    const std::string errors = ::testing::TempDir() + "/qor_sweep_overload.err";
    const ToolRun run =
        Qor("sweep " + ToneBench(0.0) + "--center 433.92M --span 1M --rbw 10k --ref -20 --sweeps 3", errors);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("433.9"), std::string::npos) << run.output;
    EXPECT_EQ(Slurp(errors), "warning: Device in compression. IF Overload; a higher --ref avoids it\n");
}

// A unit with an upper sideband 1200 Hz above 433.92 MHz, -40 dBm.
std::string SidebandBench() {
    simbench::Signal usb = simbench::Cw(kCenter, -40.0);
    usb.kind = "usb";
    usb.tone = 1200.0;
    return BenchWith(usb);
}

// The WAV of 1.5 seconds of USB: its header, and the tone in its last 4096 samples.
TEST_F(ToolCli, AudioWritesAWavOfTheTone) {
    const std::string wav = ::testing::TempDir() + "/qor_audio_usb.wav";
    const ToolRun run = Qor("audio " + SidebandBench() + "--center 433.92M --mode usb --seconds 1.5 --wav " + wav);
    ASSERT_EQ(run.exitCode, 0) << run.output;

    const std::string bytes = Slurp(wav);
    constexpr std::size_t kSamples = 45573, kHeader = 44;  // llround(1.5 x 30381.94)
    ASSERT_EQ(bytes.size(), kHeader + 2 * kSamples);
    const auto field = [&](std::size_t at, std::size_t size) {
        std::uint32_t value = 0;
        std::memcpy(&value, bytes.data() + at, size);
        return value;
    };
    EXPECT_EQ(bytes.compare(0, 4, "RIFF"), 0);
    EXPECT_EQ(bytes.compare(8, 8, "WAVEfmt "), 0);
    EXPECT_EQ(bytes.compare(36, 4, "data"), 0);
    EXPECT_EQ(field(20, 2), 1u) << "PCM";
    EXPECT_EQ(field(22, 2), 1u) << "channels";
    EXPECT_EQ(field(24, 4), 30382u) << "sample rate";
    EXPECT_EQ(field(34, 2), 16u) << "bits per sample";
    EXPECT_EQ(field(40, 4), 2 * kSamples) << "data bytes";
    std::vector<std::int16_t> pcm(kSamples);
    std::memcpy(pcm.data(), bytes.data() + kHeader, 2 * kSamples);
    const std::vector<float> tail(pcm.end() - 4096, pcm.end());
    const audiotest::ToneFit fit = audiotest::FitTone(tail, 30381.944444444445, 100.0, 5000.0);
    EXPECT_NEAR(fit.frequency, 1200.0, 1.0);
    EXPECT_NEAR(fit.amplitude / 16384.0, 1.0, 0.1) << "a sideband at its level is 6 dB below full scale";
    EXPECT_GT(fit.sinadDb, 30.0);
}

TEST_F(ToolCli, AudioStreamsRawSamplesToStdoutWithNothingElse) {
    const ToolRun run = Qor("audio " + SidebandBench() + "--center 433.92M --mode am --seconds 0.5", "/dev/null");
    ASSERT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output.size(), 2u * 15191u);  // llround(0.5 x 30381.94) samples
    EXPECT_NE(Qor("audio --sim --center 1G --mode dsb").exitCode, 0);
}

// The default bench's generator is cabled to its type 4 unit: a thru stored
// and kept in a file, a 20 dB attenuator measured, and a later run that takes
// the thru from that file.
TEST_F(ToolCli, TrackingGeneratorThruKeptInAFileServesALaterRun) {
    const std::string dir = ::testing::TempDir(), sweep = "tg --sim --start 1.9G --stop 2.1G --points 400 ";
    const std::string attenuator = R"( --dut '{"kind": "attenuator", "loss": 20}')";
    const std::string thru = dir + "/qor_tg_thru.csv", csv = dir + "/qor_tg.csv", png = dir + "/qor_tg.png";
    std::remove(png.c_str());
    const ToolRun stored =
        Qor(sweep + "--high-range --thru --save-thru " + thru + " --csv " + csv + " --png " + png + attenuator);
    ASSERT_EQ(stored.exitCode, 0) << stored.output;
    const auto first = ReadCsv(csv, "frequency_hz,s21_db");
    ASSERT_EQ(first.size(), 401u);
    for (const auto& row : first) EXPECT_NEAR(row.at(1), -20.0, 0.3);
    EXPECT_GT(FileSize(png), 20000);
    // The thru as measured against the generator's nominal level.
    for (const auto& row : ReadCsv(thru, "frequency_hz,s21_db")) EXPECT_NEAR(row.at(1), 0.0, 3.0);

    const ToolRun fromFile = Qor(sweep + "--thru-file " + thru + " --csv " + csv + attenuator);
    ASSERT_EQ(fromFile.exitCode, 0) << fromFile.output;
    const auto second = ReadCsv(csv, "frequency_hz,s21_db");
    ASSERT_EQ(second.size(), first.size());
    for (size_t i = 0; i < second.size(); ++i) EXPECT_NEAR(second[i].at(1), first[i].at(1), 0.3) << i;

    // A thru of other frequencies does not serve; nor do missing or bad arguments.
    const ToolRun other = Qor("tg --sim --start 1G --stop 2G --thru-file " + thru);
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_NE(other.output.find("--thru-file"), std::string::npos) << other.output;
    EXPECT_NE(Qor(sweep).exitCode, 0);  // neither --thru nor --thru-file
    EXPECT_NE(Qor("tg --sim --start 1G --thru").exitCode, 0);
    EXPECT_NE(Qor(sweep + "--thru --points 5").exitCode, 0);
    const ToolRun badDut = Qor(sweep + "--thru --dut '{\"kind\": \"cable\"}'");
    EXPECT_EQ(badDut.exitCode, 1);
    EXPECT_NE(badDut.output.find("device under test"), std::string::npos) << badDut.output;
}

}  // namespace
