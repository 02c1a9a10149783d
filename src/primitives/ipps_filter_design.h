// Filter design: windowed-sinc FIR low-pass, and Butterworth or Chebyshev
// type I IIR low- and high-pass filters by the bilinear transform. Cut-offs
// are relative to the sample rate.
#ifndef QOR_PRIMITIVES_IPPS_FILTER_DESIGN_H
#define QOR_PRIMITIVES_IPPS_FILTER_DESIGN_H

#include "ipp_types.h"

// tapCount taps of the ideal low-pass sin(2 pi r d) / (pi d) around the centre
// (tapCount - 1) / 2, times the window (ippWinBlackman takes alpha
// -(0.5 / cos(pi / (tapCount - 1)))^2); with normalise not ippFalse the taps
// are divided by the absolute value of their sum.
// Status: -8 null taps; -6 for a cut-off outside the open range 0 to 0.5 or
// fewer than 5 taps.
IppStatus ippsFIRGenLowpass_64f(Ipp64f cutoff, Ipp64f* taps, int tapCount, IppWinType window, IppBool normalise);

// 2 x order + 2 values: b0 .. b(order), then a0 .. a(order) with a0 = 1.
// The low-pass has every zero at z = -1, the high-pass at z = 1. The ripple
// in dB serves the Chebyshev family only.
// Status: -8 null taps; -25 order outside 1 to 12; -27 cut-off outside the
// open range 0 to 0.5; -28 a Chebyshev ripple that is not positive; -5 an
// unknown family.
IppStatus ippsIIRGenLowpass_64f(Ipp64f cutoff, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType family);
IppStatus ippsIIRGenHighpass_64f(Ipp64f cutoff, Ipp64f ripple, int order, Ipp64f* taps, IppsIIRFilterType family);

#endif
