// A trace as CSV: frequency_hz, min and max in the trace's unit.
#ifndef QOR_TOOL_TRACE_CSV_H
#define QOR_TOOL_TRACE_CSV_H

#include <string>
#include <vector>

namespace qortool {

struct Trace {
    double startFreq = 0.0;
    double binSize = 0.0;
    std::vector<double> min;
    std::vector<double> max;
    bool millivolts = false;
};

// False when the file cannot be written.
bool WriteTraceCsv(const std::string& path, const Trace& trace);

}  // namespace qortool

#endif
