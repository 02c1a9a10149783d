#include "ipp_dispatch.h"

#include "dispatch_row.h"

namespace qor_prim {
int g_cpuIndex = ippCpuSSE3;
bool g_wideVectors = false;

bool WideVectorsDetected() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
}

void SetWideVectors(bool on) { g_wideVectors = on && WideVectorsDetected(); }
}  // namespace qor_prim

namespace {

int DetectCpuIndex() {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return ippCpuAVX2;
    if (__builtin_cpu_supports("avx") && __builtin_cpu_supports("fma")) return ippCpuAVXFMA;
    if (__builtin_cpu_supports("avx")) return ippCpuAVX;
    if (__builtin_cpu_supports("sse4.2")) return ippCpuSSE42;
    if (__builtin_cpu_supports("sse4.1")) return ippCpuSSE41;
    if (__builtin_cpu_supports("ssse3")) return ippCpuSSSE3;
    return ippCpuSSE3;
}

// Runs before the ordinary static constructors of the library, so that no
// primitive can run on the unset index.
__attribute__((constructor(101))) void FixCpuIndexAtLoad() {
    qor_prim::g_cpuIndex = DetectCpuIndex();
    qor_prim::g_wideVectors = qor_prim::WideVectorsDetected();
}

}  // namespace

int ippGetCpuIndex() { return qor_prim::g_cpuIndex; }

int ippGetDetectedCpuIndex() { return DetectCpuIndex(); }

IppStatus ippSetCpuIndex(int index) {
    if (index < 0 || index > DetectCpuIndex()) return ippStsBadArgErr;
    qor_prim::g_cpuIndex = index;
    return ippStsNoErr;
}
