// An application may name its D2XX library after it has loaded the library:
// nothing the library does at load reaches for the bus.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "child_process.h"

namespace {

TEST(NameAfterLoad, TheUnitsOfALibraryNamedAfterLoadAreListed) {
    const char* app = std::getenv("QOR_NAME_AFTER_LOAD_APP");
    const char* instrument = std::getenv("QOR_D2XX_LIBRARY");
    if (app == nullptr || instrument == nullptr) GTEST_SKIP() << "needs the application and the virtual instrument";
    // A fresh process, started without the variable, on the default bench.
    const testsupport::ChildRun run = testsupport::RunChild(
        std::string("env -u QOR_D2XX_LIBRARY -u QOR_SIM_BENCH ") + app + " " + instrument + " 2>&1");
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(run.output, "11000001\n12000002\n13000003\n14000004\n");
}

}  // namespace
