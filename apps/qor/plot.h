// A trace drawn as a PNG: labelled axes with round ticks, both traces, the
// strongest peaks marked and the settings in a caption.
#ifndef QOR_TOOL_PLOT_H
#define QOR_TOOL_PLOT_H

#include <string>
#include <vector>

#include "peaks.h"
#include "plot_axes.h"
#include "trace_csv.h"

namespace qortool {

struct PlotText {
    std::string title;    // e.g. the unit
    std::string caption;  // the settings of the sweep
};

// False when the image cannot be written. With a `levelAxis` label the plot
// shows one trace (the max) on that axis; without, min and max in the trace's unit.
bool WriteTracePng(const std::string& path, const Trace& trace, const std::vector<Peak>& peaks,
                   const PlotText& text, const std::string& levelAxis = "");

}  // namespace qortool

#endif
