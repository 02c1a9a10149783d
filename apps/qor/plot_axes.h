// What every PNG plot of the tool shares: the page, the plot area, text,
// and the axes with round ticks in one frequency unit.
#ifndef QOR_TOOL_PLOT_AXES_H
#define QOR_TOOL_PLOT_AXES_H

#include <cairo.h>

#include <string>
#include <vector>

namespace qortool {

inline constexpr int kWidth = 1200;
inline constexpr int kHeight = 700;
inline constexpr double kLeft = 90, kRight = 30, kTop = 60, kBottom = 110;

struct Frame {
    double x0, x1, y0, y1;  // data range
    double PixelX(double x) const { return kLeft + (x - x0) / (x1 - x0) * (kWidth - kLeft - kRight); }
    double PixelY(double y) const { return kTop + (y1 - y) / (y1 - y0) * (kHeight - kTop - kBottom); }
};

// Text at (x, y), `alignX` 0 left, 0.5 centred, 1 right.
void Text(cairo_t* cr, double x, double y, const std::string& text, double alignX, double size);

// Round tick positions covering [low, high], about `wanted` of them (1-2-5 steps).
std::vector<double> NiceTicks(double low, double high, int wanted);

struct GridColour {
    double red, green, blue, alpha;
};
inline constexpr GridColour kGridGrey{0.88, 0.88, 0.88, 1.0};

// Grid lines in `grid`, tick labels, the frame of the plot area and the
// axis titles (frequency below, `levelLabel` on the left).
void DrawGrid(cairo_t* cr, const Frame& f, const char* levelLabel, const GridColour& grid);

}  // namespace qortool

#endif
