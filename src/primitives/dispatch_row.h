// A row of seven code slots indexed by the process-wide processor index.
#ifndef QOR_PRIMITIVES_DISPATCH_ROW_H
#define QOR_PRIMITIVES_DISPATCH_ROW_H

#include "ipp_dispatch.h"

namespace qor_prim {

// Written once at load (and by ippSetCpuIndex in tests), read by every stub.
extern int g_cpuIndex;

// Whether the vector path may use 512-bit registers: set at load where the
// processor has AVX-512 (F and DQ), and switched off by tests to compare the
// two widths. Only while no other thread runs primitives.
extern bool g_wideVectors;
bool WideVectorsDetected();
void SetWideVectors(bool on);

// Gives the generic code to every level below AVX2 and the vector code to
// AVX2; a row with 512-bit code gives that to the AVX2 level where allowed.
template <typename Fn>
class DispatchRow {
public:
    constexpr DispatchRow(Fn generic, Fn avx2, Fn avx512 = nullptr)
        : slots_{generic, generic, generic, generic, generic, generic, avx2}, wide_(avx512) {}
    Fn Pick() const {
        return g_cpuIndex == ippCpuAVX2 && g_wideVectors && wide_ ? wide_ : slots_[g_cpuIndex];
    }

private:
    Fn slots_[kIppCpuIndexCount];
    Fn wide_;
};

}  // namespace qor_prim

// The code of the vector path; each such function is compiled for AVX2 and FMA
// while the rest of the layer stays at the baseline.
#define QOR_TARGET_AVX2 __attribute__((target("avx2,fma")))
// The same for the 512-bit code.
#define QOR_TARGET_AVX512 __attribute__((target("avx512f,avx512dq,avx2,fma")))
// For the small register helpers of the vector code: inlined also in
// unoptimised builds (the sanitizer builds), where a call per register
// operation would make the vector code slower than the generic one.
#define QOR_ALWAYS_INLINE inline __attribute__((always_inline))

#endif
