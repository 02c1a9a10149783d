// FIR filters with their delay lines carried from call to call.
//
// Life cycle: ippsFIRGetStateSize_* gives the bytes for a tap count,
// ippsFIRInit_* makes the state in that memory (ippsFIRInitAlloc_64f
// allocates it, ippsFIRFree_64f frees it), and ippsFIR_* filters block after
// block: y[n] = sum over k of h[k] x[n - k], complex taps as they are,
// the samples before the first block from the delay line. Cutting a signal
// into blocks changes the output only in the last bits. Source and
// destination may be the same array. A state serves one thread at a time.
//
// The delay line given at initialisation holds tapCount - 1 samples (an
// array of tapCount serves), oldest first: delayLine[i] = x[i - (tapCount - 1)];
// null means zeros. Filters from 128 taps on run by fast convolution
// (overlap-save with the layer's FFT, computed in double precision, in
// chunks of about 3/4 of a transform of four times the taps; a chunk short
// enough, as the end of a block often is, takes the transform of half the
// points); shorter ones by a vectorised direct form. Float data are filtered
// in double precision.
#ifndef QOR_PRIMITIVES_IPPS_FIR_H
#define QOR_PRIMITIVES_IPPS_FIR_H

#include "ipp_types.h"

struct IppsFIRState_32f;
struct IppsFIRState_64f;
struct IppsFIRState_32fc;
struct IppsFIRState_64fc;

// Status: -8 null pointer, -26 tap count below 1 or above 2^22.
IppStatus ippsFIRGetStateSize_32f(int tapCount, int* size);
IppStatus ippsFIRGetStateSize_32fc(int tapCount, int* size);
IppStatus ippsFIRGetStateSize_64fc(int tapCount, int* size);

// Status: -8 null pointer (delay line excepted), -26 tap count below 1 or above 2^22.
IppStatus ippsFIRInit_32f(IppsFIRState_32f** state, const Ipp32f* taps, int tapCount, const Ipp32f* delayLine,
                          Ipp8u* memory);
IppStatus ippsFIRInit_32fc(IppsFIRState_32fc** state, const Ipp32fc* taps, int tapCount, const Ipp32fc* delayLine,
                           Ipp8u* memory);
IppStatus ippsFIRInit_64fc(IppsFIRState_64fc** state, const Ipp64fc* taps, int tapCount, const Ipp64fc* delayLine,
                           Ipp8u* memory);
// As above, plus -9 when the memory cannot be allocated.
IppStatus ippsFIRInitAlloc_64f(IppsFIRState_64f** state, const Ipp64f* taps, int tapCount, const Ipp64f* delayLine);
// Status: -8 null, -13 a state that ippsFIRInitAlloc_64f did not make.
IppStatus ippsFIRFree_64f(IppsFIRState_64f* state);

// Status: -8 null pointer, -6 length below 1, -13 a state of another kind.
IppStatus ippsFIR_32f(const Ipp32f* src, Ipp32f* dst, int length, IppsFIRState_32f* state);
IppStatus ippsFIR_32fc(const Ipp32fc* src, Ipp32fc* dst, int length, IppsFIRState_32fc* state);
IppStatus ippsFIR_64f(const Ipp64f* src, Ipp64f* dst, int length, IppsFIRState_64f* state);
IppStatus ippsFIR_64fc(const Ipp64fc* src, Ipp64fc* dst, int length, IppsFIRState_64fc* state);

// The filter followed by ippsSampleDown: the same outputs as the two calls
// in turn, but a fast filter computes only the outputs kept, when the
// pattern starts each chunk afresh (a phase of 0 and blocks of a multiple of
// the factor, as a stream sampled down block by block has them).
// Status: as ippsFIR_*, plus -59 factor below 1, -60 phase outside 0 to factor - 1.
IppStatus ippsFIRSampleDown_32f(const Ipp32f* src, int srcLength, Ipp32f* dst, int* dstLength, int factor, int* phase,
                                IppsFIRState_32f* state);
IppStatus ippsFIRSampleDown_32fc(const Ipp32fc* src, int srcLength, Ipp32fc* dst, int* dstLength, int factor,
                                 int* phase, IppsFIRState_32fc* state);
IppStatus ippsFIRSampleDown_64fc(const Ipp64fc* src, int srcLength, Ipp64fc* dst, int* dstLength, int factor,
                                 int* phase, IppsFIRState_64fc* state);

#endif
