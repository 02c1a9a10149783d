// The persistence image of the real-time mode as a PNG, the way a real-time
// analyzer shows it: each cell's density through a perceptual colour map
// (black where no spectrum ever reached), frequency and level axes, and the
// frame sweep drawn over the image.
#ifndef QOR_TOOL_PERSISTENCE_PLOT_H
#define QOR_TOOL_PERSISTENCE_PLOT_H

#include <array>
#include <string>
#include <vector>

#include "plot.h"

namespace qortool {

struct PersistenceFrame {
    int width = 0;             // columns
    int height = 256;          // rows, row 0 the lowest level
    std::vector<float> density;  // row-major, row r column c at r x width + c
    std::vector<float> sweep;  // dBm, one per bin
    double startFreq = 0.0;    // of bin 0
    double binSize = 0.0;
    double refLevel = -20.0;   // dBm at the top of the image
    double frameScale = 100.0; // dB the rows cover
};

// Inferno from black-purple to pale yellow; `t` in 0..1. Red, green, blue 0..1.
std::array<double, 3> Inferno(double t);

// False when the image cannot be written.
bool WritePersistencePng(const std::string& path, const PersistenceFrame& frame, const PlotText& text);

}  // namespace qortool

#endif
