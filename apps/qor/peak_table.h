// The peak table of `qor sweep` as text.
#ifndef QOR_TOOL_PEAK_TABLE_H
#define QOR_TOOL_PEAK_TABLE_H

#include <string>
#include <vector>

#include "peaks.h"

namespace qortool {

// A header, then one line per peak (number, frequency, level in dBm or mV);
// a noise-biased level carries "*", and the table then ends with the footnote.
std::string PeakTable(const std::vector<Peak>& peaks, bool millivolts);

}  // namespace qortool

#endif
