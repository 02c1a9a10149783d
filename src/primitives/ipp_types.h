// Types, enumerations and status values shared by every vector primitive.
#ifndef QOR_PRIMITIVES_IPP_TYPES_H
#define QOR_PRIMITIVES_IPP_TYPES_H

#include <cstdint>

typedef unsigned char Ipp8u;
typedef int16_t Ipp16s;
typedef int32_t Ipp32s;
typedef uint32_t Ipp32u;
typedef float Ipp32f;
typedef double Ipp64f;
struct Ipp32fc { float re; float im; };
struct Ipp64fc { double re; double im; };

// Size of an image region in elements.
struct IppiSize { int width; int height; };

// 0 success, negative errors (nothing written), positive warnings (the
// computation went on).
typedef int IppStatus;
enum : IppStatus {
    ippStsNoErr = 0,
    ippStsBadArgErr = -5,          // an enumerated argument has no meaning here
    ippStsSizeErr = -6,            // a length below 1 (or below what the primitive needs)
    ippStsNullPtrErr = -8,         // a required pointer is null
    ippStsDivByZeroErr = -10,      // an IIR denominator whose a0 is zero
    ippStsMemAllocErr = -9,        // the layer could not allocate a state
    ippStsContextMatchErr = -13,   // a state or specification that the primitive did not make
    ippStsStepErr = -14,           // an image row step shorter than the row
    ippStsFFTOrderErr = -15,       // FFT order outside 0 to 24
    ippStsFFTFlagErr = -16,        // FFT scaling flag not one of the four
    ippStsIIROrderErr = -25,       // IIR order outside 1 to 12
    ippStsFIRLenErr = -26,         // FIR tap count below 1
    ippStsFilterFrequencyErr = -27,  // IIR design cut-off outside the open range 0 to 0.5
    ippStsRippleErr = -28,         // Chebyshev ripple not positive
    ippStsTonePhaseErr = -44,
    ippStsToneFreqErr = -45,
    ippStsToneMagnErr = -46,
    ippStsSampleFactorErr = -59,   // down-sampling factor below 1
    ippStsSamplePhaseErr = -60,    // down-sampling phase outside 0 to factor - 1
    ippStsLnZeroArg = 7,
    ippStsLnNegArg = 8,
};

// Window of the FIR low-pass design; any other value means no window.
enum IppWinType { ippWinBartlett = 0, ippWinBlackman = 1, ippWinHamming = 2, ippWinHann = 3, ippWinRect = 4 };

// Family of the IIR design.
enum IppsIIRFilterType { ippButterworth = 0, ippChebyshev1 = 1 };

enum IppHintAlgorithm { ippAlgHintNone = 0, ippAlgHintFast = 1, ippAlgHintAccurate = 2 };

enum IppRoundMode { ippRndZero = 0, ippRndNear = 1 };

enum IppBool { ippFalse = 0, ippTrue = 1 };

// FFT scaling flags: which direction is divided by N (or both by sqrt N).
enum {
    IPP_FFT_DIV_FWD_BY_N = 1,
    IPP_FFT_DIV_INV_BY_N = 2,
    IPP_FFT_DIV_BY_SQRTN = 4,
    IPP_FFT_NODIV_BY_ANY = 8,
};

#endif
