// The shared library exports the 55 functions of the public header and nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "child_process.h"
#include "qor_api.h"

TEST(ExportedSymbols, ExactlyThe55Functions) {
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&qorGetAPIVersion), &info), 0);
    const testsupport::ChildRun run =
        testsupport::RunChild(std::string("nm -D --defined-only ") + info.dli_fname + " 2>/dev/null");
    std::set<std::string> exported;
    char kind[4], name[400];
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);) {
        const bool text = std::sscanf(line.c_str(), "%*s %3s %399s", kind, name) == 2 && std::string(kind) == "T";
        if (text) exported.insert(name);
    }
    if (exported.empty()) GTEST_SKIP() << "nm is not available to read " << info.dli_fname;
    const std::set<std::string> expected = {
        "qorGetSerialNumberList", "qorOpenDevice", "qorOpenDeviceBySerialNumber", "qorCloseDevice", "qorPreset",
        "qorSetCalFilePath", "qorGetSerialNumber", "qorGetFirmwareString", "qorGetDeviceType", "qorGetAPIVersion",
        "qorGetProductID", "qorGetErrorString", "qorConfigAcquisition", "qorConfigCenterSpan", "qorConfigLevel",
        "qorConfigGainAtten", "qorConfigSweepCoupling", "qorConfigRBWShape", "qorConfigProcUnits", "qorConfigIQ",
        "qorConfigAudio", "qorConfigRealTime", "qorConfigRealTimeOverlap", "qorConfigTgSweep", "qorInitiate",
        "qorAbort", "qorQuerySweepInfo", "qorQueryStreamInfo", "qorQueryRealTimeFrameInfo", "qorQueryRealTimePoi",
        "qorQueryTemperature", "qorQueryDiagnostics", "qorGetSweep_32f", "qorGetSweep_64f",
        "qorGetPartialSweep_32f", "qorGetPartialSweep_64f", "qorGetRealTimeFrame", "qorGetIQ_32f", "qorGetIQ_64f",
        "qorGetIQ", "qorGetIQData", "qorGetIQDataUnpacked", "qorGetAudio", "qorAttachTg", "qorIsTgAttached",
        "qorStoreTgThru", "qorSetTg", "qorSetTgReference", "qorGetTgFreqAmpl", "qorSetTimebase",
        "qorConfigIFOutput", "qorSelfTest",
        // C++ linkage: names decorated with the signature.
        "_Z24qorSetTimebaseCorrectionid", "_Z24qorGetTimebaseCorrectioniPd", "_Z17qorAdjustTimebaseid"};
    EXPECT_EQ(expected.size(), 55u);
    EXPECT_EQ(exported, expected);
}
