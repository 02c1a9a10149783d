// The vector primitive layer: one include for its users.
#ifndef QOR_PRIMITIVES_IPPS_H
#define QOR_PRIMITIVES_IPPS_H

#include "ipp_types.h"
#include "ipp_memory.h"

#endif
