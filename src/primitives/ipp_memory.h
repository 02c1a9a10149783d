// 64-byte aligned blocks for every vector of the engines.
#ifndef QOR_PRIMITIVES_IPP_MEMORY_H
#define QOR_PRIMITIVES_IPP_MEMORY_H

#include "ipp_types.h"

// Null for a length below 1 or when memory is exhausted. Free with ippsFree only.
Ipp8u* ippsMalloc_8u(int length);
Ipp64f* ippsMalloc_64f(int length);
Ipp64fc* ippsMalloc_64fc(int length);
void ippsFree(void* block);

#endif
