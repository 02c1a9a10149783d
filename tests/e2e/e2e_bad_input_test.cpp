// The calls that reach the hardware, against the edges of their types on an
// open unit: each value gives a defined status (the exact one where the
// call's rules fix it), returns at once, and leaves the unit measuring right.
// The configuration calls have their own table in the api suite.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "e2e_bench.h"

namespace {

using namespace e2e;

constexpr unsigned kOrsk = 44000004;  // type 4: the IF output and both references
constexpr double kTone = 1.2e9;
constexpr double kLevel = -30.0;

const std::vector<BenchUnit>& Scene() {
    static const std::vector<BenchUnit> units = {{kOrsk, 4, {{kTone, kLevel}}}};
    return units;
}

class HardwareCallEdges : public SceneSuite<Scene> {};

const std::vector<double> kDoubles = {NAN, INFINITY, -INFINITY, -0.0, 0.0, 5e-324, 1e308, -1e308, -1.0, 1e15};
const std::vector<int> kInts = {INT_MIN, -1, 0, 1, 2, 3, 5, 100, INT_MAX};

struct Case {
    std::string call;
    std::function<qorStatus(int device)> run;
    std::set<qorStatus> allowed;  // empty: any status but a crash, a hang or -666
};

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (int mode : {INT_MIN, -2, 5, 6, 100, INT_MAX}) {
        cases.push_back({"qorInitiate mode " + std::to_string(mode),
                         [mode](int d) { return qorInitiate(d, mode); }, {qorInvalidParameterErr}});
    }
    for (int timebase : kInts) {
        const std::set<qorStatus> allowed = timebase == 1 || timebase == 2
                                                ? std::set<qorStatus>{qorNoError, qorExternalReferenceNotFound}
                                                : std::set<qorStatus>{qorInvalidParameterErr, qorNoError};
        cases.push_back({"qorSetTimebase " + std::to_string(timebase),
                         [timebase](int d) { return qorSetTimebase(d, timebase); }, allowed});
    }
    for (double v : kDoubles) {
        const std::string value = std::to_string(v);
        const std::set<qorStatus> correction = {qorNoError, qorInvalidParameterErr};
        cases.push_back({"qorSetTimebaseCorrection " + value,
                         [v](int d) { return qorSetTimebaseCorrection(d, v); }, correction});
        cases.push_back({"qorAdjustTimebase " + value, [v](int d) { return qorAdjustTimebase(d, v); }, correction});
        const std::set<qorStatus> ifOutput = {qorNoError, qorParameterClamped, qorInvalidParameterErr};
        cases.push_back({"qorConfigIFOutput input " + value,
                         [v](int d) { return qorConfigIFOutput(d, v, 6.3e7, 10, 30); }, ifOutput});
        cases.push_back({"qorConfigIFOutput output " + value,
                         [v](int d) { return qorConfigIFOutput(d, 1e9, v, 10, 30); }, ifOutput});
        cases.push_back({"qorSetTg frequency " + value, [v](int d) { return qorSetTg(d, v, -10.0); }, {}});
        cases.push_back({"qorSetTg amplitude " + value, [v](int d) { return qorSetTg(d, 1e9, v); }, {}});
    }
    for (int n : kInts) {
        const std::string value = std::to_string(n);
        cases.push_back({"qorConfigIFOutput attenuation " + value,
                         [n](int d) { return qorConfigIFOutput(d, 1e9, 6.3e7, n, 30); },
                         {qorNoError, qorParameterClamped}});
        cases.push_back({"qorConfigIFOutput gain " + value,
                         [n](int d) { return qorConfigIFOutput(d, 1e9, 6.3e7, 10, n); },
                         {qorNoError, qorParameterClamped}});
        // Outside the generator's sweep: a flag of 1 or 2 is a good one, refused for the mode.
        cases.push_back({"qorStoreTgThru " + value, [n](int d) { return qorStoreTgThru(d, n); },
                         {n == 1 || n == 2 ? qorNotConfiguredErr : qorInvalidParameterErr}});
        cases.push_back({"qorSetTgReference " + value, [n](int d) { return qorSetTgReference(d, n); }, {}});
        // Idle: a count below 1 is refused before the mode is looked at.
        cases.push_back({"qorGetIQ count " + value,
                         [n](int d) {
                             std::vector<float> iq(64);
                             return qorGetIQ(d, iq.data(), n, 0);
                         },
                         {n < 1 ? qorInvalidParameterErr : qorNotConfiguredErr}});
    }
    return cases;
}

TEST_F(HardwareCallEdges, EveryValueGivesADefinedStatusAndTheUnitMeasuresOn) {
    const int device = devices_.at(kOrsk);
    for (const Case& c : Cases()) {
        SCOPED_TRACE(c.call);
        const auto start = std::chrono::steady_clock::now();
        const qorStatus status = c.run(device);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
        EXPECT_NE(status, qorNullPtrErr);
        EXPECT_NE(status, qorUnknownErr);
        EXPECT_TRUE(c.allowed.empty() || c.allowed.count(status)) << status;
        qorAbort(device);
    }
    // Timebase corrections that were refused left the unit's own; the tone is where it was.
    const Trace trace = Measure(device, Between(kTone - 5e6, kTone + 5e6, 100e3));
    ASSERT_EQ(trace.get, qorNoError);
    ExpectTones(trace, Scene()[0].tones, 0.5, 200e3);
}

}  // namespace
