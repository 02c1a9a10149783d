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

// Local maxima that stand at least `prominence` above the lowest point between
// them and any stronger neighbour, strongest first, at most `count`.
std::vector<Peak> StrongestPeaks(const std::vector<double>& trace, double startFreq, double binSize, int count,
                                 double prominence = 6.0);

}  // namespace qortool

#endif
