// The complex tones that shift captures in frequency.
#ifndef QOR_TONE_H
#define QOR_TONE_H

#include "ipp_types.h"

namespace qor {

// `length` samples of a tone of `cyclesPerSample` (any sign or size: taken
// modulo 1), magnitude 1, phase 0.
void FillTone(Ipp64fc* tone, int length, double cyclesPerSample);

}  // namespace qor

#endif
