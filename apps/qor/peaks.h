// The strongest peaks of a trace.
#ifndef QOR_TOOL_PEAKS_H
#define QOR_TOOL_PEAKS_H

#include <vector>

namespace qortool {

struct Peak {
    int bin;
    double frequency;
    double level;
};

// Local maxima of a trace in dB that stand at least `prominence` above the
// lowest point between them and any stronger neighbour, and `aboveFloor` above
// the trace's median (its noise floor): strongest first, at most `count`.
std::vector<Peak> StrongestPeaks(const std::vector<double>& trace, double startFreq, double binSize, int count,
                                 double prominence = 6.0, double aboveFloor = 15.0);

}  // namespace qortool

#endif
