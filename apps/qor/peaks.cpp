#include "peaks.h"

#include <algorithm>

namespace qortool {
namespace {

// The lowest level between bin `from` and the nearest bin on one side that is
// higher than `from`'s level (or the end of the trace).
double LowestTowardsHigher(const std::vector<double>& trace, int from, int direction) {
    double lowest = trace[static_cast<std::size_t>(from)];
    for (int i = from + direction; i >= 0 && i < static_cast<int>(trace.size()); i += direction) {
        const double v = trace[static_cast<std::size_t>(i)];
        if (v > trace[static_cast<std::size_t>(from)]) break;
        lowest = std::min(lowest, v);
    }
    return lowest;
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The middle of the run of bins around `top` that lie within 0.1 dB of it,
// in bins: a flat top has no one highest bin worth naming.
double TopCentre(const std::vector<double>& trace, int top) {
    const double within = trace[static_cast<std::size_t>(top)] - 0.1;
    int first = top, last = top;
    while (first > 0 && trace[static_cast<std::size_t>(first - 1)] >= within) --first;
    while (last + 1 < static_cast<int>(trace.size()) && trace[static_cast<std::size_t>(last + 1)] >= within) ++last;
    return (first + last) / 2.0;
}

}  // namespace

std::vector<Peak> StrongestPeaks(const std::vector<double>& trace, double startFreq, double binSize, int count,
                                 double prominence, double aboveFloor) {
    std::vector<Peak> peaks;
    const int n = static_cast<int>(trace.size());
    const double floor = Median(trace);
    for (int i = 0; i < n; ++i) {
        const double v = trace[static_cast<std::size_t>(i)];
        const bool leftLower = i == 0 || trace[static_cast<std::size_t>(i - 1)] < v;
        const bool rightNotHigher = i == n - 1 || trace[static_cast<std::size_t>(i + 1)] <= v;
        if (!leftLower || !rightNotHigher || v < floor + aboveFloor) continue;
        // A peak's prominence is measured against the higher of its valleys; a
        // peak on an edge of the trace has only one.
        double valley = i > 0 ? LowestTowardsHigher(trace, i, -1) : LowestTowardsHigher(trace, i, +1);
        if (i > 0 && i < n - 1) valley = std::max(valley, LowestTowardsHigher(trace, i, +1));
        if (v - valley >= prominence) {
            peaks.push_back({i, startFreq + TopCentre(trace, i) * binSize, v, v < floor + kUnbiasedAboveFloor});
        }
    }
    std::sort(peaks.begin(), peaks.end(), [](const Peak& a, const Peak& b) { return a.level > b.level; });
    if (static_cast<int>(peaks.size()) > count) peaks.resize(static_cast<std::size_t>(count));
    return peaks;
}

bool AnyNoiseBiased(const std::vector<Peak>& peaks) {
    return std::any_of(peaks.begin(), peaks.end(), [](const Peak& p) { return p.noiseBiased; });
}

}  // namespace qortool
