// IIR filter of order 1 to 12 with its state carried from call to call.
//
// Life cycle: ippsIIRGetStateSize_32f gives the bytes, ippsIIRInit_32f makes
// the state in that memory, ippsIIR_32f filters block after block without a
// seam. The taps are b0 .. b(order), a0 .. a(order), divided by a0; the
// filter runs as the transposed direct form II in double precision, so
// high orders and low cut-offs keep their response in float data.
#ifndef QOR_PRIMITIVES_IPPS_IIR_H
#define QOR_PRIMITIVES_IPPS_IIR_H

#include "ipp_types.h"

struct IppsIIRState_32f;

// Status: -8 null pointer, -25 order outside 1 to 12.
IppStatus ippsIIRGetStateSize_32f(int order, int* size);

// delayLine: `order` values of the transposed direct form's state, or null for zeros.
// Status: -8 null pointer, -25 order, -10 a0 of zero.
IppStatus ippsIIRInit_32f(IppsIIRState_32f** state, const Ipp32f* taps, int order, const Ipp32f* delayLine,
                          Ipp8u* memory);

// In place allowed. Status: -8 null pointer, -6 length below 1, -13 not an IIR state.
IppStatus ippsIIR_32f(const Ipp32f* src, Ipp32f* dst, int length, IppsIIRState_32f* state);

#endif
