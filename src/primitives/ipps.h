// The vector primitive layer: one include for its users.
#ifndef QOR_PRIMITIVES_IPPS_H
#define QOR_PRIMITIVES_IPPS_H

#include "ipp_types.h"
#include "ipp_memory.h"
#include "ipp_dispatch.h"
#include "ipps_convert.h"
#include "ipps_arith.h"
#include "ipps_transcend.h"
#include "ipps_complex.h"
#include "ipps_tone.h"
#include "ipps_window.h"
#include "ipps_filter_design.h"
#include "ipps_fir.h"
#include "ipps_iir.h"
#include "ipps_sample.h"
#include "ipps_fft.h"
#include "ippi_transpose.h"

#endif
