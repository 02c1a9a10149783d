// Scalar network sweeps with the tracking generator through the C API on the
// virtual instrument: a stored thru, then devices under test whose responses
// the instrument computes, in the wide and the narrow form on both families;
// the generator's own calls and its memory; faults.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "e2e_bench.h"

namespace {

using namespace e2e;
using Clock = std::chrono::steady_clock;

struct Family {
    const char* name;
    unsigned analyzer;
    int type;
    unsigned generator;
    int generatorFamily;
    double low, high;  // the family's range, as a sweep covers it
    double middle;     // a frequency well inside it
};

const Family kVelm{"Velm", 43000002, 2, 23000001, 1, 20e6, 4.3e9, 1e9};
const Family kOrsk{"Orsk", 43000004, 4, 23000002, 2, 100e6, 12.3e9, 6e9};

// One analyzer and, unless `generator` is null, one generator cabled to it;
// `generator` holds the generator's fields beyond serial, family and cable.
std::string TgBench(const Family& f, const char* generator = "") {
    std::string bench = simbench::Json(BenchOf({{f.analyzer, f.type, {}}}));
    if (!generator) return bench;
    bench.pop_back();
    return bench + R"(, "generators": [{"serial": )" + std::to_string(f.generator) + R"(, "family": )" +
           std::to_string(f.generatorFamily) + R"(, "cabledTo": )" + std::to_string(f.analyzer) + generator + "}]}";
}

class TgBase : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TheSim()) GTEST_SKIP() << "needs the virtual instrument as D2XX library";
    }
    void Load(const Family& f, const char* generator = "") {
        family = f;
        const Sim* sim = TheSim();
        ASSERT_EQ(0, sim->loadBenchJson(TgBench(f, generator).c_str())) << sim->lastError();
        CalibrationFolder().UseAsCalibrationCache();
        // Each test's generator gives its own memory, not one an earlier test cached.
        std::filesystem::remove(CacheFile());
        device = Open(f.analyzer);
        ASSERT_GE(device, 0);
    }
    void LoadAttached(const Family& f, const char* generator = "") {
        if (device >= 0) qorCloseDevice(device);
        Load(f, generator);
        if (device >= 0) { ASSERT_EQ(qorNoError, qorAttachTg(device)); }
        TheSim()->clearCommandLog(0);  // the memory's reads would make every look at the log long
    }
    void TearDown() override {
        if (device >= 0) qorCloseDevice(device);
    }
    void Start(double start, double stop, int points, bool highRange = true, bool preamp = false) {
        ASSERT_EQ(qorNoError, qorConfigCenterSpan(device, (start + stop) / 2, stop - start));
        ASSERT_EQ(qorNoError, qorConfigTgSweep(device, points, highRange, preamp));
        ASSERT_EQ(qorNoError, qorInitiate(device, ModeTGSweep));
        ASSERT_EQ(qorNoError, qorQuerySweepInfo(device, &length, &startFreq, &binSize));
        trace.assign(static_cast<size_t>(length), 0.0);
        other.assign(static_cast<size_t>(length), 0.0);
    }
    qorStatus Take() { return qorGetSweep_64f(device, trace.data(), other.data()); }
    // Sweeps after a change: a free-running sweep under way when it came,
    // and one finished before, are dropped; a sweep on request starts after it.
    void Settle() {
        const int sweeps = length > 0 && binSize * (length - 1) <= 101000.0 ? 1 : 3;
        for (int k = 0; k < sweeps; ++k) ASSERT_EQ(qorNoError, Take());
    }
    void Swap(const char* dut) {
        ASSERT_EQ(0, TheSim()->setDut(family.generator, dut)) << TheSim()->lastError();
        Settle();
    }
    // The cable with nothing between, stored as the thru: it then reads 0 dB.
    void StoreThru() {
        Swap(R"({"kind": "thru"})");
        ASSERT_EQ(qorNoError, qorStoreTgThru(device, 1));
        // The store is made at the end of the next sweep.
        ASSERT_EQ(qorNoError, Take());
        Settle();
        for (int i = 0; i < length; ++i) ASSERT_NEAR(trace[i], 0.0, 0.1) << FrequencyOf(i);
    }
    double FrequencyOf(int i) const { return startFreq + i * binSize; }
    std::filesystem::path CacheFile() const { return CalibrationFolder().Path() / (Eight(family.generator) + ".tg"); }
    double Model(int i) const { return TheSim()->dutGain(family.generator, FrequencyOf(i)); }
    // The generator's logged commands that begin with `command`.
    std::vector<Payload> GeneratorCommands(char command) const {
        std::vector<Payload> found = Commands(family.generator);
        found.erase(std::remove_if(found.begin(), found.end(), [&](const Payload& p) { return p[0] != command; }),
                    found.end());
        return found;
    }

    Family family{};
    int device = -1;
    int length = 0;
    double startFreq = 0, binSize = 0;
    std::vector<double> trace, other;
};

class TgFamily : public TgBase, public ::testing::WithParamInterface<Family> {};

INSTANTIATE_TEST_SUITE_P(Families, TgFamily, ::testing::Values(kVelm, kOrsk),
                         [](const auto& info) { return std::string(info.param.name); });

// Across the range, and over 100 kHz, where the generator is set for each
// point and the points arrive one by one, each piece following on the one before.
TEST_P(TgFamily, AttenuatorReadsItsLossInWideAndNarrowSweeps) {
    LoadAttached(GetParam());
    for (const bool narrow : {false, true}) {
        SCOPED_TRACE(narrow ? "narrow" : "wide");
        if (narrow) {
            Start(family.middle - 50e3, family.middle + 50e3, 10);
            ASSERT_EQ(11, length);
            for (int start = 0, stop = 0, before = 0; stop < length; before = stop) {
                ASSERT_EQ(qorNoError, qorGetPartialSweep_64f(device, trace.data(), other.data(), &start, &stop));
                EXPECT_EQ(before, start);
                EXPECT_GT(stop, start);
            }
            EXPECT_FALSE(GeneratorCommands('F').empty());
        } else {
            Start(family.low, family.high, 100);
        }
        StoreThru();
        Swap(R"({"kind": "attenuator", "loss": 20})");
        for (int i = 0; i < length; ++i) EXPECT_NEAR(trace[i], -20.0, 0.3) << FrequencyOf(i);
        qorAbort(device);
    }
}

TEST_P(TgFamily, BandPassFollowsItsModelIntoTheStopBand) {
    LoadAttached(GetParam());
    Start(family.middle - 500e6, family.middle + 500e6, 200);
    StoreThru();
    const std::string middle = std::to_string(family.middle);
    Swap((R"({"kind": "bandpass", "center": )" + middle + R"(, "bandwidth": 5e7, "loss": 1.5})").c_str());
    double deepest = 0.0;
    for (int i = 0; i < length; ++i) {
        const double model = Model(i);
        deepest = std::min(deepest, model);
        EXPECT_NEAR(trace[i], model, model > -3.0 ? 0.5 : 1.0) << FrequencyOf(i);  // pass band, stop band
    }
    EXPECT_LT(deepest, -75.0);  // the skirts reach well down towards the floor
}

TEST_F(TgBase, SecondPassDeepensTheMeasurableNotch) {
    LoadAttached(kVelm);
    double depth[2] = {};
    for (const bool highRange : {false, true}) {
        Start(950e6, 1050e6, 200, highRange);
        StoreThru();
        Swap(R"({"kind": "notch", "center": 1e9, "bandwidth": 1e5, "depth": 110})");
        const int centre = static_cast<int>(std::lround((1e9 - startFreq) / binSize));
        for (int i = 0; i < length; ++i) {
            if (std::abs(i - centre) > 1) { EXPECT_NEAR(trace[i], Model(i), 0.3) << FrequencyOf(i); }
        }
        depth[highRange] = trace[centre];
        qorAbort(device);
    }
    const double onePass = depth[0], twoPasses = depth[1];
    EXPECT_LT(onePass, -50.0);
    EXPECT_LE(twoPasses, onePass - 15.0) << "one pass " << onePass << " dB, two " << twoPasses << " dB";
}

TEST_F(TgBase, ThruIsStoredAtTheEndOfTheSweepUnderWay) {
    LoadAttached(kVelm, R"(, "dut": {"kind": "attenuator", "loss": 20})");
    Start(200e6 - 50e3, 200e6 + 50e3, 10);  // narrow: swept on request, point by point
    // Asked for before the sweep: it is taken up at the sweep's end, not its start.
    ASSERT_EQ(qorNoError, qorStoreTgThru(device, 1));
    for (int start = 0, stop = 0; stop < length;) {
        ASSERT_EQ(qorNoError, qorGetPartialSweep_64f(device, trace.data(), other.data(), &start, &stop));
    }
    // The sweep is measured against the old thru all through...
    for (int i = 0; i < length; ++i) EXPECT_NEAR(trace[i], -20.0, 1.5) << FrequencyOf(i);
    // ...and becomes the thru at its end.
    ASSERT_EQ(qorNoError, Take());
    for (int i = 0; i < length; ++i) EXPECT_NEAR(trace[i], 0.0, 0.1) << FrequencyOf(i);
}

// Below 1 MHz a narrow sweep reads each point at a computed bin, and below
// 201 Hz it takes the mean out of the capture first.
TEST_F(TgBase, NarrowLowFrequenciesFollowALowPass) {
    LoadAttached(kVelm);
    const std::pair<double, double> spans[] = {{300e3, 400e3}, {100.0, 10100.0}};
    for (const auto& [start, stop] : spans) {
        Start(start, stop, 10);
        StoreThru();
        Swap(R"({"kind": "lowpass", "cutoff": 350e3, "loss": 0.5})");
        for (int i = 0; i < length; ++i) EXPECT_NEAR(trace[i], Model(i), 0.3) << FrequencyOf(i);
        qorAbort(device);
    }
}

// The point count and the form follow from the span; the preamplifier does
// not reach below 250 kHz.
struct PlanCase {
    double start, stop;
    int points;
    bool preamp;
    double binSize;
    int length;
    bool wide;
    bool preampOn;
};

TEST_F(TgBase, SpanChoosesPointsFormAndPreamplifier) {
    const PlanCase cases[] = {{100e6, 101e6, 200, false, 5000, 201, true, false},
                              {100e6, 100e6 + 15, 200, false, 10, 2, false, false},
                              {100e6, 100e6 + 101000, 20, true, 5000, 21, false, true},
                              {100e6, 100e6 + 101001, 20, true, 5000, 21, true, true},
                              {100e3, 300e6, 50, true, 5e6, 60, true, false},
                              {250e3, 300e6, 50, true, 5e6, 60, true, true}};
    for (const PlanCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.start << " to " << c.stop);
        LoadAttached(kVelm);
        Start(c.start, c.stop, c.points, true, c.preamp);
        EXPECT_EQ(c.binSize, binSize);
        EXPECT_EQ(c.length, length);
        EXPECT_EQ(c.start, startFreq);
        int start = 0, stop = 0;
        ASSERT_EQ(qorNoError,
                  c.wide ? Take() : qorGetPartialSweep_64f(device, trace.data(), other.data(), &start, &stop));
        qorAbort(device);
        // A wide sweep is loaded into the generator whole; a narrow one sets it point by point.
        EXPECT_EQ(c.wide, !GeneratorCommands('S').empty());
        EXPECT_EQ(c.wide, GeneratorCommands('F').empty());
        EXPECT_EQ(c.preampOn, CountCommands(family.analyzer, 'M', 1) > 0);
    }
}

TEST_F(TgBase, ThruFlagsAreCheckedBeforeTheMode) {
    LoadAttached(kVelm);
    EXPECT_EQ(qorInvalidParameterErr, qorStoreTgThru(device, 3));
    EXPECT_EQ(qorInvalidParameterErr, qorStoreTgThru(device, 0));
    EXPECT_EQ(qorNotConfiguredErr, qorStoreTgThru(device, 1));
    Start(100e6, 200e6, 50);
    EXPECT_EQ(qorNoError, qorStoreTgThru(device, 2));  // the pad, with the preamplifier clear: nothing changes
    EXPECT_EQ(qorNotConfiguredErr, qorSetTg(device, 1e9, -20.0));
    EXPECT_EQ(qorNotConfiguredErr, qorSetTgReference(device, 0));
    EXPECT_EQ(qorNotConfiguredErr, qorGetTgFreqAmpl(device, nullptr, nullptr));
}

// The generator's levels as the analyzer measures them, and its memory cached.
TEST_P(TgFamily, SetLevelsAreMeasuredByTheAnalyzer) {
    LoadAttached(GetParam());
    std::vector<unsigned char> memory(4096);
    ASSERT_EQ(0, TheSim()->generatorEeprom(family.generator, memory.data(), 4096));
    std::ifstream file(CacheFile(), std::ios::binary);
    EXPECT_EQ(memory, std::vector<unsigned char>(std::istreambuf_iterator<char>(file), {}));

    for (double f : {family.low * 2, family.middle, family.high * 0.9}) {
        for (double level : {-10.0, -17.3, -24.6, -30.0}) {
            ASSERT_EQ(qorNoError, qorSetTg(device, f, level));
            Sweep s = Between(f - 50e3, f + 50e3, 3e3);
            s.refLevel = 0.0;
            const Trace t = Measure(device, s);
            ASSERT_EQ(qorNoError, t.get);
            EXPECT_NEAR(t.LevelNear(f, 5e3), level, 1.0) << f << " Hz, " << level << " dBm";
        }
    }
    // Held to the range, and read back as held.
    EXPECT_EQ(qorParameterClamped, qorSetTg(device, family.middle, -35.0));
    double f = 0, level = 0;
    ASSERT_EQ(qorNoError, qorGetTgFreqAmpl(device, &f, &level));
    EXPECT_EQ(family.middle, f);
    EXPECT_EQ(-30.0, level);
    EXPECT_EQ(qorNoError, qorGetTgFreqAmpl(device, nullptr, &level));
}

TEST_F(TgBase, ReferenceChoicesPassOnInTheLargerFamilyOnly) {
    LoadAttached(kOrsk);
    const int wire[3] = {0, 2, 1};
    for (int reference = 0; reference < 3; ++reference) {
        ASSERT_EQ(qorNoError, qorSetTgReference(device, reference));
        EXPECT_EQ(wire[reference], TheSim()->generatorReference(family.generator));
    }
    EXPECT_EQ(qorInvalidParameterErr, qorSetTgReference(device, 3));
    LoadAttached(kVelm);
    TheSim()->clearCommandLog(0);
    EXPECT_EQ(qorNoError, qorSetTgReference(device, 1));
    EXPECT_EQ(qorInvalidParameterErr, qorSetTgReference(device, 2));
    EXPECT_TRUE(GeneratorCommands('R').empty());
}

// The words and codes a generator is sent, by its memory and its chip's user area.
struct WordCase {
    const char* generator;
    double amplitude;
    uint32_t word;  // "F" for 1 GHz
    int code;       // "A"; -1: by the search
};

TEST_F(TgBase, FrequencyWordAndCode) {
    const WordCase cases[] = {
        {R"(, "calibrated": false)", -20.5, 100000000, 15},
        {R"(, "calibrated": false)", -10.0, 100000000, 5},
        {R"(, "calibrated": false, "timebaseCorrection": 1.00001)", -30.0, 100001000, 25},
        {R"(, "timebaseWord": 28767)", -20.0, 100000000, -1},
        {R"(, "timebaseWord": 28768)", -20.0, 99999600, -1},
        {R"(, "timebaseWord": 36768)", -20.0, 100000400, -1},
        {R"(, "timebaseWord": 36769)", -20.0, 100000000, -1},
        {R"(, "timebaseWord": 28768, "timebaseCorrection": 0.99999)", -20.0, 99999000, -1}};
    for (const WordCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.generator << " at " << c.amplitude << " dBm");
        LoadAttached(kVelm, c.generator);
        ASSERT_EQ(qorNoError, qorSetTg(device, 1e9, c.amplitude));
        const auto f = GeneratorCommands('F');
        const auto a = GeneratorCommands('A');
        ASSERT_EQ(1u, f.size());
        ASSERT_EQ(1u, a.size());
        EXPECT_EQ(c.word, f[0][1] | f[0][2] << 8 | f[0][3] << 16 | static_cast<uint32_t>(f[0][4]) << 24);
        if (c.code >= 0) { EXPECT_EQ(c.code, a[0][1]); }
        // A generator without calibration leaves no cache file.
        EXPECT_EQ(c.code < 0, std::filesystem::exists(CacheFile()));
        // The output lands where it was asked for, whatever the generator's clock.
        const Trace t = Measure(device, Between(1e9 - 20e3, 1e9 + 20e3, 300));
        EXPECT_NEAR(t.FrequencyOf(t.PeakBin()), 1e9, t.binSize);
    }
}

TEST_F(TgBase, WithoutGeneratorTheModeRunsAndTheCallsSayNotFound) {
    Load(kVelm, nullptr);
    EXPECT_EQ(qorTrackingGeneratorNotFound, qorAttachTg(device));
    bool attached = true;
    ASSERT_EQ(qorNoError, qorIsTgAttached(device, &attached));
    EXPECT_FALSE(attached);
    EXPECT_EQ(qorTrackingGeneratorNotFound, qorSetTg(device, 1e9, -20.0));
    EXPECT_EQ(qorTrackingGeneratorNotFound, qorSetTgReference(device, 0));
    EXPECT_EQ(qorTrackingGeneratorNotFound, qorGetTgFreqAmpl(device, nullptr, nullptr));
    Start(100e6, 200e6, 50);
    ASSERT_EQ(qorNoError, Take());
    for (double v : trace) EXPECT_LT(v, -50.0);  // nothing but the analyzer's own floor
}

// A generator unplugged during a wide sweep: -11 on a following get, then a
// prompt abort and close. (The analyzer's unplug is tested with every engine.)
TEST_F(TgBase, UnpluggedGeneratorGivesUsbError) {
    LoadAttached(kOrsk);
    Start(1e9, 3e9, 400);
    ASSERT_EQ(qorNoError, Take());
    ASSERT_EQ(0, TheSim()->unplug(family.generator, 2));
    qorStatus status = qorNoError;
    for (int k = 0; k < 5 && status == qorNoError; ++k) status = Take();
    EXPECT_EQ(qorUsbCommErr, status);
    const auto before = Clock::now();
    EXPECT_EQ(qorNoError, qorAbort(device));
    EXPECT_EQ(qorNoError, qorCloseDevice(device));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(1));
    device = -1;
}

}  // namespace
