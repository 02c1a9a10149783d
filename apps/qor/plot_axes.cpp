#include "plot_axes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qortool {

void Text(cairo_t* cr, double x, double y, const std::string& text, double alignX, double size) {
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, x - alignX * extents.width - extents.x_bearing, y);
    cairo_show_text(cr, text.c_str());
}

std::vector<double> NiceTicks(double low, double high, int wanted) {
    std::vector<double> ticks;
    if (!(high > low) || wanted < 1) return ticks;
    const double raw = (high - low) / wanted;
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    double step = magnitude;
    for (double m : {1.0, 2.0, 5.0, 10.0}) {
        step = m * magnitude;
        if (step >= raw) break;
    }
    for (double t = std::ceil(low / step) * step; t <= high + step * 1e-9; t += step) {
        ticks.push_back(std::fabs(t) < step * 1e-9 ? 0.0 : t);
    }
    return ticks;
}

namespace {

// One unit for the whole frequency axis, and as many decimals as its ticks need.
struct AxisUnit {
    double scale;
    const char* name;
    int decimals;
};

AxisUnit FrequencyUnit(double highest, double step) {
    static const AxisUnit kUnits[] = {{1e9, "GHz", 0}, {1e6, "MHz", 0}, {1e3, "kHz", 0}, {1.0, "Hz", 0}};
    // The largest unit that the frequencies reach and that needs at most
    // three decimals for the ticks.
    AxisUnit unit = kUnits[3];
    for (const AxisUnit& candidate : kUnits) {
        if (highest >= candidate.scale && step / candidate.scale >= 0.001 - 1e-12) {
            unit = candidate;
            break;
        }
    }
    unit.decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step / unit.scale) + 1e-9)));
    return unit;
}

}  // namespace

void DrawGrid(cairo_t* cr, const Frame& f, const char* levelLabel, const GridColour& grid) {
    cairo_set_line_width(cr, 1.0);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    const std::vector<double> xTicks = NiceTicks(f.x0, f.x1, 10);
    const AxisUnit unit = FrequencyUnit(std::max(std::fabs(f.x0), std::fabs(f.x1)),
                                        xTicks.size() > 1 ? xTicks[1] - xTicks[0] : f.x1 - f.x0);
    for (double x : xTicks) {
        cairo_set_source_rgba(cr, grid.red, grid.green, grid.blue, grid.alpha);
        cairo_move_to(cr, f.PixelX(x), kTop);
        cairo_line_to(cr, f.PixelX(x), kHeight - kBottom);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
        char label[48];
        std::snprintf(label, sizeof label, "%.*f", unit.decimals, x / unit.scale);
        Text(cr, f.PixelX(x), kHeight - kBottom + 20, label, 0.5, 13);
    }
    for (double y : NiceTicks(f.y0, f.y1, 8)) {
        cairo_set_source_rgba(cr, grid.red, grid.green, grid.blue, grid.alpha);
        cairo_move_to(cr, kLeft, f.PixelY(y));
        cairo_line_to(cr, kWidth - kRight, f.PixelY(y));
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
        char label[32];
        std::snprintf(label, sizeof label, "%g", y);
        Text(cr, kLeft - 8, f.PixelY(y) + 5, label, 1.0, 13);
    }
    cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
    cairo_rectangle(cr, kLeft, kTop, kWidth - kLeft - kRight, kHeight - kTop - kBottom);
    cairo_stroke(cr);
    Text(cr, (kLeft + kWidth - kRight) / 2, kHeight - kBottom + 45, std::string("Frequency (") + unit.name + ")", 0.5, 14);
    cairo_save(cr);
    cairo_translate(cr, 25, (kTop + kHeight - kBottom) / 2);
    cairo_rotate(cr, -M_PI / 2);
    Text(cr, 0, 0, levelLabel, 0.5, 14);
    cairo_restore(cr);
}

}  // namespace qortool
