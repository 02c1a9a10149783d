#include "tone.h"

#include <cmath>

#include "ipps.h"

namespace qor {

void FillTone(Ipp64fc* tone, int length, double cyclesPerSample) {
    double frequency = cyclesPerSample - std::floor(cyclesPerSample);
    if (frequency >= 1.0) frequency = 0.0;  // a tiny negative rounds up to 1
    double phase = 0.0;
    ippsTone_64fc(tone, length, 1.0, frequency, &phase, ippAlgHintFast);
}

}  // namespace qor
