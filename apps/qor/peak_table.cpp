#include "peak_table.h"

#include <cstdio>

#include "si_units.h"

namespace qortool {

std::string PeakTable(const std::vector<Peak>& peaks, bool millivolts) {
    char line[96];
    std::snprintf(line, sizeof line, "%-4s %-18s %12s\n", "peak", "frequency",
                  millivolts ? "level (mV)" : "level (dBm)");
    std::string table = line;
    for (std::size_t k = 0; k < peaks.size(); ++k) {
        const Peak& p = peaks[k];
        std::snprintf(line, sizeof line, "%-4zu %-18s %12.2f%s\n", k + 1, FormatHz(p.frequency, 9).c_str(), p.level,
                      p.noiseBiased ? "*" : "");
        table += line;
    }
    if (AnyNoiseBiased(peaks)) {
        table += std::string(kNoiseBiasedNote) + "\n";
    }
    return table;
}

}  // namespace qortool
