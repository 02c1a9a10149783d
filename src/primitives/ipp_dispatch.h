// Processor dispatch of the primitive layer.
//
// At load, before any primitive runs, the layer detects the processor once
// and fixes one process-wide index from 0 to 6 that follows the
// instruction-set level. Primitives with several code paths jump through a
// row of seven slots at that index; levels that share code share an entry,
// and every slot computes the same operation.
#ifndef QOR_PRIMITIVES_IPP_DISPATCH_H
#define QOR_PRIMITIVES_IPP_DISPATCH_H

#include "ipp_types.h"

enum IppCpuIndex {
    ippCpuSSE3 = 0,     // the x86-64 baseline: the generic code path
    ippCpuSSSE3 = 1,
    ippCpuSSE41 = 2,
    ippCpuSSE42 = 3,
    ippCpuAVX = 4,
    ippCpuAVXFMA = 5,   // AVX with FMA but no AVX2
    ippCpuAVX2 = 6,     // AVX2 with FMA: the vector code path
};
constexpr int kIppCpuIndexCount = 7;

// The index fixed at load.
int ippGetCpuIndex();

// The highest index this processor supports.
int ippGetDetectedCpuIndex();

// Lowers (or restores) the index, so that the code paths can be compared in
// one process. Only while no other thread runs primitives. FFT
// specifications and FIR states keep the path chosen at their initialisation.
// ippStsBadArgErr for an index outside 0 to the detected one.
IppStatus ippSetCpuIndex(int index);

#endif
