// Runs a piece of a test once on each code path of the processor dispatch.
#ifndef QOR_TESTS_PRIMITIVES_PATH_GUARD_H
#define QOR_TESTS_PRIMITIVES_PATH_GUARD_H

#include <gtest/gtest.h>

#include <vector>

#include "ipp_dispatch.h"

namespace qor_test {

// The generic path and, where the processor has it, the AVX2 path.
inline std::vector<int> CodePaths() {
    std::vector<int> paths{ippCpuSSE3};
    if (ippGetDetectedCpuIndex() >= ippCpuAVX2) paths.push_back(ippCpuAVX2);
    return paths;
}

template <typename Body>
void OnEachCodePath(Body body) {
    const int saved = ippGetCpuIndex();
    for (int path : CodePaths()) {
        SCOPED_TRACE(testing::Message() << "dispatch index " << path);
        ASSERT_EQ(ippSetCpuIndex(path), ippStsNoErr);
        body(path);
    }
    ippSetCpuIndex(saved);
}

}  // namespace qor_test

#endif
