// A row of seven code slots indexed by the process-wide processor index.
#ifndef QOR_PRIMITIVES_DISPATCH_ROW_H
#define QOR_PRIMITIVES_DISPATCH_ROW_H

#include "ipp_dispatch.h"

namespace qor_prim {

// Written once at load (and by ippSetCpuIndex in tests), read by every stub.
extern int g_cpuIndex;

// Gives the generic code to every level below AVX2 and the vector code to AVX2.
template <typename Fn>
class DispatchRow {
public:
    constexpr DispatchRow(Fn generic, Fn avx2)
        : slots_{generic, generic, generic, generic, generic, generic, avx2} {}
    Fn Pick() const { return slots_[g_cpuIndex]; }

private:
    Fn slots_[kIppCpuIndexCount];
};

}  // namespace qor_prim

// The code of the vector path; each such function is compiled for AVX2 and FMA
// while the rest of the layer stays at the baseline.
#define QOR_TARGET_AVX2 __attribute__((target("avx2,fma")))

#endif
