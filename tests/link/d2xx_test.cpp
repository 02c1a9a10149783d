// The D2XX table when no usable library is there: an empty bus, never a crash.
#include <gtest/gtest.h>

#include <cstdlib>

#include "d2xx.h"

namespace qor {
namespace {

// The table is resolved once per process, so each case runs in a child.
[[noreturn]] void CheckEmptyBusWith(const char* library, const char* problem) {
    setenv("QOR_D2XX_LIBRARY", library, 1);
    const d2xx::Table& ft = d2xx::Functions();
    DWORD count = 99;
    FT_HANDLE handle = &count;
    bool ok = ft.CreateDeviceInfoList(&count) == FT_OK && count == 0;
    ok = ok && ft.Open(0, &handle) != FT_OK && handle == nullptr;
    DWORD got = 7;
    uint8_t byte = 0;
    ok = ok && ft.Read(nullptr, &byte, 1, &got) != FT_OK && got == 0;
    ok = ok && d2xx::LoadProblem().find(problem) != std::string::npos;
    std::exit(ok ? 0 : 1);
}

TEST(D2xxTableDeathTest, NoLibraryOrOneWithoutTheFunctionsMeansNoUnits) {
    EXPECT_EXIT(CheckEmptyBusWith("/nonexistent/libnothing.so", "libnothing.so"), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(CheckEmptyBusWith("libm.so.6", "missing symbol FT_CreateDeviceInfoList"),
                ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace qor
