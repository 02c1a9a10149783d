#include "plot.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "plot_axes.h"
#include "si_units.h"

namespace qortool {
namespace {

// Level range: from a little below the noise to above the strongest point,
// on 10 dB lines.
std::pair<double, double> LevelRange(const Trace& trace) {
    double low = 1e300, high = -1e300;
    for (std::size_t i = 0; i < trace.max.size(); ++i) {
        if (trace.min[i] <= -199.0) continue;  // not measured
        low = std::min(low, trace.min[i]);
        high = std::max(high, trace.max[i]);
    }
    if (low > high) return {-120.0, 0.0};
    if (trace.millivolts) return {0.0, high > 0 ? high * 1.1 : 1.0};
    return {std::floor(low / 10.0) * 10.0 - 10.0, std::ceil(high / 10.0) * 10.0 + 10.0};
}

void DrawTrace(cairo_t* cr, const Frame& f, const Trace& trace, const std::vector<double>& values) {
    bool drawing = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] <= -199.0) {  // not measured yet: a gap
            drawing = false;
            continue;
        }
        const double x = f.PixelX(trace.startFreq + static_cast<double>(i) * trace.binSize);
        const double y = f.PixelY(std::clamp(values[i], f.y0, f.y1));
        if (drawing) {
            cairo_line_to(cr, x, y);
        } else {
            cairo_move_to(cr, x, y);
            drawing = true;
        }
    }
    cairo_stroke(cr);
}

void DrawPeaks(cairo_t* cr, const Frame& f, const std::vector<Peak>& peaks, bool millivolts) {
    for (std::size_t k = 0; k < peaks.size(); ++k) {
        const Peak& p = peaks[k];
        const double x = f.PixelX(p.frequency), y = f.PixelY(std::clamp(p.level, f.y0, f.y1));
        cairo_set_source_rgb(cr, 0.85, 0.1, 0.1);
        cairo_move_to(cr, x, y - 4);
        cairo_line_to(cr, x - 6, y - 14);
        cairo_line_to(cr, x + 6, y - 14);
        cairo_close_path(cr);
        cairo_fill(cr);
        char label[96];
        std::snprintf(label, sizeof label, "%zu: %s, %.1f%s %s", k + 1, FormatHz(p.frequency, 7).c_str(), p.level,
                      p.noiseBiased ? "*" : "", millivolts ? "mV" : "dBm");
        const double alignX = x > kWidth * 0.75 ? 1.0 : (x < kWidth * 0.25 ? 0.0 : 0.5);
        Text(cr, x, std::max(kTop + 14.0, y - 20), label, alignX, 12);
    }
}

}  // namespace

bool WriteTracePng(const std::string& path, const Trace& trace, const std::vector<Peak>& peaks,
                   const PlotText& text, const std::string& levelAxis) {
    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight), &cairo_surface_destroy);
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> context(cairo_create(surface.get()), &cairo_destroy);
    cairo_t* cr = context.get();
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);

    const auto [low, high] = LevelRange(trace);
    const double last = trace.startFreq + trace.binSize * static_cast<double>(std::max<std::size_t>(trace.max.size(), 2) - 1);
    const Frame f{trace.startFreq, last > trace.startFreq ? last : trace.startFreq + 1.0, low, high};
    const bool single = !levelAxis.empty();
    DrawGrid(cr, f, single ? levelAxis.c_str() : trace.millivolts ? "Level (mV)" : "Level (dBm)", kGridGrey);

    cairo_save(cr);
    cairo_rectangle(cr, kLeft, kTop, kWidth - kLeft - kRight, kHeight - kTop - kBottom);
    cairo_clip(cr);
    cairo_set_line_width(cr, 1.2);
    cairo_set_source_rgb(cr, 0.55, 0.75, 0.95);
    if (!single) DrawTrace(cr, f, trace, trace.min);
    cairo_set_source_rgb(cr, 0.05, 0.25, 0.65);
    DrawTrace(cr, f, trace, trace.max);
    cairo_restore(cr);
    DrawPeaks(cr, f, peaks, trace.millivolts);

    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    Text(cr, kLeft, 35, text.title, 0.0, 18);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    Text(cr, kLeft, kHeight - 25, text.caption, 0.0, 13);
    if (AnyNoiseBiased(peaks)) {
        Text(cr, kLeft, kHeight - 7, kNoiseBiasedNote, 0.0, 12);
    }
    if (single) return cairo_surface_write_to_png(surface.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_set_source_rgb(cr, 0.05, 0.25, 0.65);
    Text(cr, kWidth - kRight, 35, "max", 1.0, 13);
    cairo_set_source_rgb(cr, 0.45, 0.65, 0.9);
    Text(cr, kWidth - kRight - 40, 35, "min", 1.0, 13);

    return cairo_surface_write_to_png(surface.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace qortool
