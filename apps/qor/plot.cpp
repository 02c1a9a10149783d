#include "plot.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "si_units.h"

namespace qortool {
namespace {

constexpr int kWidth = 1200;
constexpr int kHeight = 700;
constexpr double kLeft = 90, kRight = 30, kTop = 60, kBottom = 110;

struct Frame {
    double x0, x1, y0, y1;  // data range
    double PixelX(double x) const { return kLeft + (x - x0) / (x1 - x0) * (kWidth - kLeft - kRight); }
    double PixelY(double y) const { return kTop + (y1 - y) / (y1 - y0) * (kHeight - kTop - kBottom); }
};

void Text(cairo_t* cr, double x, double y, const std::string& text, double alignX, double size) {
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, x - alignX * extents.width - extents.x_bearing, y);
    cairo_show_text(cr, text.c_str());
}

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

void DrawGrid(cairo_t* cr, const Frame& f, const std::string& levelAxis) {
    cairo_set_line_width(cr, 1.0);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    const std::vector<double> xTicks = NiceTicks(f.x0, f.x1, 10);
    const AxisUnit unit = FrequencyUnit(std::max(std::fabs(f.x0), std::fabs(f.x1)),
                                        xTicks.size() > 1 ? xTicks[1] - xTicks[0] : f.x1 - f.x0);
    for (double x : xTicks) {
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
        cairo_move_to(cr, f.PixelX(x), kTop);
        cairo_line_to(cr, f.PixelX(x), kHeight - kBottom);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
        char label[48];
        std::snprintf(label, sizeof label, "%.*f", unit.decimals, x / unit.scale);
        Text(cr, f.PixelX(x), kHeight - kBottom + 20, label, 0.5, 13);
    }
    for (double y : NiceTicks(f.y0, f.y1, 8)) {
        cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
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
    Text(cr, 0, 0, levelAxis, 0.5, 14);
    cairo_restore(cr);
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
    DrawGrid(cr, f, single ? levelAxis : trace.millivolts ? "Level (mV)" : "Level (dBm)");

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
