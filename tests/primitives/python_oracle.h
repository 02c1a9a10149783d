// Independent references from numpy and scipy, computed at test time: the
// inputs go to a temporary folder as float64 files, a short script writes
// its result the same way.
#ifndef QOR_TESTS_PRIMITIVES_PYTHON_ORACLE_H
#define QOR_TESTS_PRIMITIVES_PYTHON_ORACLE_H

#include <string>
#include <vector>

namespace qor_test {

class PythonOracle {
public:
    // True when a python3 with numpy and scipy runs; else `why` tells what is missing.
    static bool Available(std::string* why);
    // Runs `body` after a prelude that defines inp(i) (the i-th input as a
    // float64 array), out(a) (the result) and imports np and scipy.signal as sig.
    static std::vector<double> Run(const std::string& body, const std::vector<std::vector<double>>& inputs);
};

}  // namespace qor_test

// Skips the current test when the oracle cannot run.
#define QOR_REQUIRE_PYTHON_ORACLE()                                        \
    do {                                                                   \
        std::string why;                                                   \
        if (!qor_test::PythonOracle::Available(&why)) GTEST_SKIP() << why; \
    } while (0)

#endif
