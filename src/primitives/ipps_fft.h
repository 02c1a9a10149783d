// Complex double FFT of 2^order points, order 0 to 24.
//
// Life cycle: ippsFFTGetSize_C_64fc gives the bytes of the FFT setup block,
// of the initialisation memory (needed only during ippsFFTInit_C_64fc) and
// of the work buffer; ippsFFTInit_C_64fc fills the setup block once (no
// timing, no allocation); the transforms then allocate nothing. The
// setup block is read only and may serve several threads, each with its
// own work buffer. Forward X[k] = scale sum x[n] exp(-2 pi j n k / N),
// inverse with +2 pi j; the flag chooses the scales (IPP_FFT_DIV_FWD_BY_N:
// forward 1 / N, inverse 1). Source and destination may be the same array.
#ifndef QOR_PRIMITIVES_IPPS_FFT_H
#define QOR_PRIMITIVES_IPPS_FFT_H

#include "ipp_types.h"

struct IppsFFTSpec_C_64fc;

// Status: -8 null pointer, -15 order outside 0 to 24, -16 unknown flag.
IppStatus ippsFFTGetSize_C_64fc(int order, int flag, IppHintAlgorithm hint, int* specSize, int* initSize,
                                int* workSize);

// *spec receives the setup block, which lives inside specMemory.
// Status: -8 null pointer, -15 order, -16 flag.
IppStatus ippsFFTInit_C_64fc(IppsFFTSpec_C_64fc** spec, int order, int flag, IppHintAlgorithm hint, Ipp8u* specMemory,
                             Ipp8u* initMemory);

// Status: -8 null pointer, -13 a setup block that ippsFFTInit_C_64fc did not make.
IppStatus ippsFFTFwd_CToC_64fc(const Ipp64fc* src, Ipp64fc* dst, const IppsFFTSpec_C_64fc* spec, Ipp8u* work);
IppStatus ippsFFTInv_CToC_64fc(const Ipp64fc* src, Ipp64fc* dst, const IppsFFTSpec_C_64fc* spec, Ipp8u* work);

// The forward transform of src times window (complex products, element by
// element; conj(src) times window with `conjugate` not 0): ippsConj_64fc,
// ippsMul_64fc and ippsFFTFwd_CToC_64fc in one call, which the large sizes
// take in one sweep through memory instead of three. Status as the forward.
IppStatus ippsFFTFwdWindowed_CToC_64fc(const Ipp64fc* src, const Ipp64fc* window, int conjugate, Ipp64fc* dst,
                                       const IppsFFTSpec_C_64fc* spec, Ipp8u* work);

// The power of that transform, |X[k]|^2, with its halves swapped (X[k] at
// (k + N / 2) mod N, DC in the middle), into `power` (N values); `scratch`
// (N complex values) may be overwritten. The large sizes never store the
// transform. Status as the forward.
IppStatus ippsFFTFwdWindowedPower_64fc(const Ipp64fc* src, const Ipp64fc* window, int conjugate, Ipp64fc* scratch,
                                       Ipp64f* power, const IppsFFTSpec_C_64fc* spec, Ipp8u* work);

#endif
