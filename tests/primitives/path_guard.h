// Runs a piece of a test once on each code path of the processor dispatch.
#ifndef QOR_TESTS_PRIMITIVES_PATH_GUARD_H
#define QOR_TESTS_PRIMITIVES_PATH_GUARD_H

#include <gtest/gtest.h>

#include <vector>

#include "dispatch_row.h"
#include "ipp_dispatch.h"

namespace qor_test {

struct CodePath {
    int index;
    bool wide;  // 512-bit registers on the AVX2 level
};

// The generic path and, where the processor has them, the AVX2 path with
// 256-bit and with 512-bit registers.
inline std::vector<CodePath> CodePaths() {
    std::vector<CodePath> paths{{ippCpuSSE3, false}};
    if (ippGetDetectedCpuIndex() >= ippCpuAVX2) paths.push_back({ippCpuAVX2, false});
    if (ippGetDetectedCpuIndex() >= ippCpuAVX2 && qor_prim::WideVectorsDetected()) paths.push_back({ippCpuAVX2, true});
    return paths;
}

template <typename Body>
void OnEachCodePath(Body body) {
    const int saved = ippGetCpuIndex();
    const bool savedWide = qor_prim::g_wideVectors;
    for (const CodePath& path : CodePaths()) {
        SCOPED_TRACE(testing::Message() << "dispatch index " << path.index << (path.wide ? " with 512-bit registers" : ""));
        ASSERT_EQ(ippSetCpuIndex(path.index), ippStsNoErr);
        qor_prim::SetWideVectors(path.wide);
        body(path.index);
    }
    ippSetCpuIndex(saved);
    qor_prim::SetWideVectors(savedWide);
}

}  // namespace qor_test

#endif
