// The shared library exports the 55 functions of the public header and nothing else.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

#include "qor_api.h"

namespace {

std::set<std::string> DefinedFunctions(const std::string& library) {
    std::set<std::string> names;
    const std::string command = "nm -D --defined-only " + library;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return names;
    char line[512];
    while (fgets(line, sizeof line, pipe) != nullptr) {
        char address[64], kind[4], name[400];
        if (sscanf(line, "%63s %3s %399s", address, kind, name) == 3 && std::string(kind) == "T") names.insert(name);
    }
    pclose(pipe);
    return names;
}

TEST(ExportedSymbols, ExactlyThe55Functions) {
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&qorGetAPIVersion), &info), 0);
    const std::set<std::string> exported = DefinedFunctions(info.dli_fname);
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

}  // namespace
