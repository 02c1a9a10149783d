// The low pass of the streaming engines' filters: a windowed sinc
// (Blackman), normalised to unit gain, designed in double precision.
#ifndef QOR_STREAM_LOWPASS_H
#define QOR_STREAM_LOWPASS_H

#include <vector>

#include "ipps.h"

namespace qor {

// `tapCount` taps with the cut-off relative to the sample rate. A cut-off
// the design refuses (0 or less) leaves the taps zero: silence.
inline std::vector<double> StreamLowpassTaps(double cutoff, int tapCount) {
    std::vector<double> taps(static_cast<std::size_t>(tapCount), 0.0);
    ippsFIRGenLowpass_64f(cutoff, taps.data(), tapCount, ippWinBlackman, ippTrue);
    return taps;
}

}  // namespace qor

#endif
