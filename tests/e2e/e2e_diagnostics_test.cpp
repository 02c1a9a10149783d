// Self-test, reference choice, timebase correction and the IF output through
// the C API on the virtual instrument: what each call answers, the commands
// it sends, and what the unit's user area carries to the next open.
#include <algorithm>
#include <cmath>
#include <vector>

#include "e2e_bench.h"

namespace {

using namespace e2e;

constexpr unsigned kSerialOf[5] = {0, 60000001, 60000002, 60000003, 60000004};
constexpr unsigned kVelmB = kSerialOf[2], kOrskA = kSerialOf[3], kOrskB = kSerialOf[4];
constexpr double kStoredCorrection = 1.0000025;  // in the type 2 unit's user area
constexpr double kStoredNonsense = 1.5;           // in the type 4 unit's: ignored at open

// The LO of the last synthesizer programming in `log`, decoded from its four
// frames: divider word, "D" outboard divider, modulus word, integer/fraction word.
double LastLo(const std::vector<Payload>& log) {
    for (size_t i = log.size(); i-- > 1;) {
        const Payload& d = log[i];
        if (d.size() != 2 || d[0] != 'D' || i + 2 >= log.size()) continue;
        const Payload& divider = log[i - 1];
        const Payload& mod = log[i + 1];
        const Payload& word = log[i + 2];
        const int synthLog2 = (divider[2] - 0x86) / 16;
        const int modulus = (mod[3] - 0x80) * 32 + (mod[4] - 1) / 8;
        const int integer = word[2] * 2 + (word[3] >> 7);
        const int fraction = (word[3] & 0x7F) * 32 + word[4] / 8;
        const int outboardLog2 = d[1] < 4 ? d[1] + 3 : 0;
        return (integer + static_cast<double>(fraction) / modulus) * 1e7 / std::ldexp(1.0, synthLog2 + outboardLog2);
    }
    return -1.0;
}

int Count(const std::vector<Payload>& log, const Payload& command) {
    return static_cast<int>(std::count(log.begin(), log.end(), command));
}

class Diagnostics : public ::testing::Test {
protected:
    void SetUp() override {
        // A fresh bench each time: user areas and reference inputs as the bench says.
        simbench::Bench bench;
        for (int type = 1; type <= 4; ++type) {
            bench.units.emplace_back(kSerialOf[type], type).OnDeviceCalibration(type != 3).Temperature(30.0);
        }
        bench.units[1].TimebaseCorrection(kStoredCorrection);
        bench.units[3].TimebaseCorrection(kStoredNonsense);
        const std::string problem = LoadBench(bench);
        if (!TheSim()) GTEST_SKIP() << problem;
        ASSERT_EQ(problem, "");
    }
    void TearDown() override { CloseAll(); }

    // Opens the unit of `type` and clears its command log.
    static int OpenType(int type) {
        const int device = Open(kSerialOf[type]);
        EXPECT_GE(device, 0) << "type " << type;
        TheSim()->clearCommandLog(kSerialOf[type]);
        return device;
    }
    static int Reopen(int device, int type) {
        EXPECT_EQ(qorNoError, qorCloseDevice(device));
        return OpenType(type);
    }
    static double Factor(int device) {
        double factor = 0.0;
        EXPECT_EQ(qorNoError, qorGetTimebaseCorrection(device, &factor));
        return factor;
    }
    static bool Sweeping(int device) {
        int length = 0;
        double start = 0.0, bin = 0.0;
        return qorQuerySweepInfo(device, &length, &start, &bin) == qorNoError;
    }
    static void StartSweep(int device) {
        ASSERT_EQ(qorNoError, qorConfigCenterSpan(device, 1e9, 100e3));
        ASSERT_EQ(qorNoError, qorInitiate(device, ModeSweep));
        ASSERT_TRUE(Sweeping(device));
    }
};

// ---- Self-test -------------------------------------------------------------

TEST_F(Diagnostics, SelfTestPassesWithTheUnitsOwnSource) {
    for (int type : {2, 4}) {
        const int device = OpenType(type);
        StartSweep(device);
        SelfTestResults r{};
        ASSERT_EQ(qorNoError, qorSelfTest(device, &r)) << "type " << type;
        EXPECT_FALSE(Sweeping(device));
        EXPECT_TRUE(r.highBandPass) << type << " high band " << r.highBandLevel;
        EXPECT_TRUE(r.lowBandPass) << type << " low band " << r.lowBandLevel;
        EXPECT_TRUE(r.attenuatorPass) << type << " attenuator " << r.attenuatorDelta;
        EXPECT_TRUE(r.lowIfPass) << type << " low IF " << r.lowIfLevel;
        EXPECT_TRUE(r.preampPass) << type << " preamplifier " << r.preampLevel;
        // The source is switched on once and off at the end; only type 2 has a preamplifier.
        const auto log = Commands(kSerialOf[type]);
        EXPECT_EQ(1, Count(log, {'O', 1}));
        EXPECT_EQ(log.back(), (Payload{'O', 0}));
        EXPECT_EQ(type == 2 ? 1 : 0, Count(log, {'M', 1}));
    }
}

// What a type lacks is refused: the self-test without a source, the
// references it has not, the IF output of the small family. The type and
// null tests come before a self-test's abort.
TEST_F(Diagnostics, CallsTheTypeLacksAreRefused) {
    for (int type : {1, 2, 3}) {
        SCOPED_TRACE(testing::Message() << "type " << type);
        const int device = OpenType(type);
        EXPECT_EQ(qorInvalidDeviceErr, qorSetTimebase(device, type == 3 ? 2 : 1));
        EXPECT_TRUE(Commands(kSerialOf[type]).empty());
        if (type == 3) { EXPECT_EQ(qorNoError, qorSetTimebase(device, 1)) << "type 3 still gives its reference out"; }
        StartSweep(device);
        if (type == 2) {
            EXPECT_EQ(qorInvalidDeviceErr, qorConfigIFOutput(device, 1e9, 3.6e7, 0, 0));
            EXPECT_TRUE(Sweeping(device));
            continue;
        }
        EXPECT_EQ(qorNullPtrErr, qorSelfTest(device, nullptr));
        EXPECT_TRUE(Sweeping(device));
        SelfTestResults r{};
        EXPECT_EQ(qorInvalidDeviceErr, qorSelfTest(device, &r));
        EXPECT_FALSE(Sweeping(device));
        EXPECT_EQ(0, Count(Commands(kSerialOf[type]), {'O', 1}));
    }
}

// ---- Reference choice ----------------------------------------------------

TEST_F(Diagnostics, FirstReferenceChoiceLastsUntilReopen) {
    int device = OpenType(4);
    StartSweep(device);
    EXPECT_EQ(qorInvalidParameterErr, qorSetTimebase(device, 0)) << "no choice made yet";
    EXPECT_FALSE(Sweeping(device)) << "the abort comes before the rule";
    TheSim()->clearCommandLog(kOrskB);
    EXPECT_EQ(qorNoError, qorSetTimebase(device, 1));
    EXPECT_EQ((std::vector<Payload>{{'C', 1}}), Commands(kOrskB));

    TheSim()->clearCommandLog(kOrskB);
    EXPECT_EQ(qorNoError, qorSetTimebase(device, 2));
    EXPECT_EQ(qorNoError, qorSetTimebase(device, 0));
    EXPECT_TRUE(Commands(kOrskB).empty()) << "a made choice sends nothing";

    device = Reopen(device, 4);
    EXPECT_EQ(qorInvalidParameterErr, qorSetTimebase(device, 0)) << "a reopen forgets the choice";
}

TEST_F(Diagnostics, ExternalReferenceMissingThenPresent) {
    for (int type : {2, 4}) {
        const unsigned serial = kSerialOf[type];
        const int device = OpenType(type);
        ASSERT_EQ(qorNoError, qorSetTimebaseCorrection(device, 1.000004));
        EXPECT_EQ(qorExternalReferenceNotFound, qorSetTimebase(device, 2));
        EXPECT_EQ((std::vector<Payload>{{'C', 2}}), Commands(serial)) << "only the question goes out";
        EXPECT_EQ(1.000004, Factor(device)) << "the internal reference keeps its correction";

        ASSERT_EQ(0, TheSim()->referencePresent(serial, 1));
        TheSim()->clearCommandLog(serial);
        EXPECT_EQ(qorNoError, qorSetTimebase(device, 2)) << "a failed choice locks nothing";
        const unsigned char select = type == 4 ? 3 : 1;
        EXPECT_EQ((std::vector<Payload>{{'C', 2}, {'C', select}}), Commands(serial));
        EXPECT_EQ(1.0, Factor(device)) << "an external reference is exact";
    }
}

// ---- Timebase correction -------------------------------------------------

TEST_F(Diagnostics, StoredCorrectionReachesTheNextOpen) {
    int device = OpenType(2);
    EXPECT_EQ(kStoredCorrection, Factor(device)) << "the open takes the user area's correction";

    // Set, not stored: the next open goes back to the stored one.
    ASSERT_EQ(qorNoError, qorSetTimebaseCorrection(device, 1.0005));
    EXPECT_EQ(1.0005, Factor(device));
    device = Reopen(device, 2);
    EXPECT_EQ(kStoredCorrection, Factor(device));

    // 0.0 clears the stored value and leaves the running factor.
    EXPECT_EQ(qorNoError, qorAdjustTimebase(device, 0.0));
    EXPECT_EQ(kStoredCorrection, Factor(device));
    EXPECT_TRUE(Commands(kVelmB).empty()) << "the user area is no command";
    device = Reopen(device, 2);
    EXPECT_EQ(1.0, Factor(device)) << "the factory's exact reference";

    EXPECT_EQ(qorNoError, qorAdjustTimebase(device, 0.9999987));
    EXPECT_EQ(0.9999987, Factor(device));
    device = Reopen(device, 2);
    EXPECT_EQ(0.9999987, Factor(device));
}

// A correction that would wreck the sweep plans (not finite, or beyond
// 1000 ppm) is refused and changes nothing, in the unit or in the library; one
// found stored in a unit is ignored at open.
TEST_F(Diagnostics, NonsenseCorrectionsAreRefusedAndIgnored) {
    int device = OpenType(2);
    const double nonsense[] = {0.0, -0.0, NAN, INFINITY, -INFINITY, 5e-324, 1e-9, -1.0, 0.9989, 1.0011, 2.0};
    for (double c : nonsense) {
        EXPECT_EQ(qorInvalidParameterErr, qorSetTimebaseCorrection(device, c)) << c;
        if (c != 0.0) { EXPECT_EQ(qorInvalidParameterErr, qorAdjustTimebase(device, c)) << c; }
    }
    EXPECT_EQ(kStoredCorrection, Factor(device));
    device = Reopen(device, 2);
    EXPECT_EQ(kStoredCorrection, Factor(device)) << "nothing reached the unit";
    EXPECT_EQ(qorNoError, qorSetTimebaseCorrection(device, 1.001));
    EXPECT_EQ(qorNoError, qorSetTimebaseCorrection(device, 0.999));

    device = OpenType(4);
    EXPECT_EQ(1.0, Factor(device)) << "the stored " << kStoredNonsense << " is ignored";
}

// ---- IF output -----------------------------------------------------------

TEST_F(Diagnostics, IFOutputHoldsItsLimits) {
    struct Case {
        int type;
        double input, output;
        int atten, gain;
        qorStatus status;
        double lo;               // the last LO: the input less the signed output used, after any first LO
        unsigned char filter;    // "F" 3 x 16 + 8 + band group
        unsigned char gainCode;  // "A" 65 + gain
        unsigned char attenCode;
    } cases[] = {
        // Raised to 125 MHz, where the LO may not lie above: sign 1.
        {3, 1e8, -3.5e7, 5, 10, qorParameterClamped, 1.25e8 - 3.5e7, 56, 75, 5},
        {3, 1e9, 3.6e7, 40, 70, qorParameterClamped, 1e9 - 3.6e7, 57, 125, 30},
        {4, 1e9, 3.6e7, 5, 10, qorParameterClamped, 1e9 - 6.1e7, 57, 75, 5},
        {4, 1e9, -6.3e7, 0, 60, qorNoError, 1e9 + 6.3e7, 57, 125, 0},
        // Band 5: the last LO works on the input less the 8.8 GHz first LO.
        {4, 2e10, 7e7, -3, 0, qorParameterClamped, 1.3e10 - 8.8e9 - 6.5e7, 59, 65, 0},
    };
    for (const Case& c : cases) {
        const int device = OpenType(c.type);
        const unsigned serial = kSerialOf[c.type];
        EXPECT_EQ(c.status, qorConfigIFOutput(device, c.input, c.output, c.atten, c.gain)) << c.type << " " << c.input;
        const auto log = Commands(serial);
        ASSERT_GE(log.size(), 3u);
        const Payload tail[3] = {{'F', c.filter}, {'A', c.gainCode}, {'A', c.attenCode}};
        EXPECT_TRUE(std::equal(tail, tail + 3, log.end() - 3)) << c.type << " " << c.input;
        EXPECT_NEAR(c.lo, LastLo(log), 1e4) << c.type << " " << c.input;
        ASSERT_EQ(qorNoError, qorCloseDevice(device));
    }
}

TEST_F(Diagnostics, IFOutputAboveTheFirstMixerTakesItsPath) {
    const int device = OpenType(4);
    ASSERT_EQ(qorNoError, qorConfigIFOutput(device, 1e9, 6.3e7, 0, 0));
    TheSim()->clearCommandLog(kOrskB);
    // Band 2 runs through the 7.8 GHz first LO, which lies above the input:
    // the last LO sits at 7.8 GHz - 5 GHz, on the side the sign says.
    ASSERT_EQ(qorNoError, qorConfigIFOutput(device, 5e9, -6.3e7, 0, 0));
    const auto log = Commands(kOrskB);
    EXPECT_EQ(1, Count(log, {'A', 131})) << "the first-LO path changes to 0";
    EXPECT_NEAR(7.8e9 - 5e9 - 6.3e7, LastLo(log), 1e4);
}

TEST_F(Diagnostics, AbortReleasesTheIFOutputOnce) {
    const int device = OpenType(3);
    ASSERT_EQ(qorNoError, qorConfigIFOutput(device, 1e9, 3.6e7, 0, 0));
    TheSim()->clearCommandLog(kOrskA);
    EXPECT_EQ(qorNoError, qorAbort(device));
    EXPECT_EQ((std::vector<Payload>{{'C', 0}}), Commands(kOrskA));
    TheSim()->clearCommandLog(kOrskA);
    EXPECT_EQ(qorNoError, qorAbort(device));
    EXPECT_TRUE(Commands(kOrskA).empty());
}

}  // namespace
