// The strongest peaks of a trace.
#ifndef QOR_TOOL_PEAKS_H
#define QOR_TOOL_PEAKS_H

#include <vector>

namespace qortool {

struct Peak {
    int bin;           // the highest bin: its level is the peak's
    double frequency;  // the centre of the peak's top
    double level;
    bool noiseBiased;  // too close to the noise floor for the level to be the signal's alone
};

// A peak closer than this to the noise floor reads high by the noise
// added to it (0.04 dB at 20 dB, 0.4 dB at 10 dB).
constexpr double kUnbiasedAboveFloor = 20.0;

// The footnote of a level marked with "*" as noise-biased.
constexpr const char* kNoiseBiasedNote = "* less than 20 dB above the noise floor: the level reads high by the noise";

// Local maxima of a trace in dB that stand at least `prominence` above the
// lowest point between them and any stronger neighbour, and `aboveFloor` above
// the trace's median (its noise floor): strongest first, at most `count`.
// A flat top (a flat-top RBW spreads a tone over several bins) is reported
// at the middle of the run of bins within 0.1 dB of its highest bin.
std::vector<Peak> StrongestPeaks(const std::vector<double>& trace, double startFreq, double binSize, int count,
                                 double prominence = 6.0, double aboveFloor = 15.0);

// Whether a level among `peaks` needs kNoiseBiasedNote.
bool AnyNoiseBiased(const std::vector<Peak>& peaks);

}  // namespace qortool

#endif
