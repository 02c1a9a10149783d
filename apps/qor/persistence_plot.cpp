#include "persistence_plot.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

namespace qortool {
namespace {

// Inferno at nine even steps; between them linear.
constexpr double kInferno[9][3] = {
    {0, 0, 4},       {31, 12, 72},    {85, 15, 109},  {136, 34, 106}, {186, 54, 85},
    {227, 89, 51},   {249, 140, 10},  {249, 201, 50}, {252, 255, 164},
};
// The faintest density starts this far up the map, so that a single hit
// still stands out from the black of no hit.
constexpr double kFaintest = 0.12;
constexpr GridColour kGridOverImage{1.0, 1.0, 1.0, 0.18};

using Surface = std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)>;

// The cells as pixels, density on a logarithmic scale from the least to the
// most of the frame.
Surface CellImage(const PersistenceFrame& f) {
    Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, f.width, f.height), &cairo_surface_destroy);
    float least = 1.0f, most = 0.0f;
    for (float d : f.density) {
        if (d > 0.0f) least = std::min(least, d), most = std::max(most, d);
    }
    const double span = most > least ? std::log(most / least) : 1.0;
    cairo_surface_flush(image.get());
    unsigned char* pixels = cairo_image_surface_get_data(image.get());
    const int stride = cairo_image_surface_get_stride(image.get());
    for (int r = 0; r < f.height; ++r) {
        // The picture's top line is the highest level.
        auto* line = reinterpret_cast<uint32_t*>(pixels + static_cast<std::ptrdiff_t>(f.height - 1 - r) * stride);
        for (int c = 0; c < f.width; ++c) {
            const float d = f.density[static_cast<std::size_t>(r) * f.width + c];
            uint32_t pixel = 0;
            if (d > 0.0f) {
                const double t = kFaintest + (1.0 - kFaintest) * std::log(d / least) / span;
                const auto rgb = Inferno(t);
                pixel = static_cast<uint32_t>(rgb[0] * 255.0 + 0.5) << 16 |
                        static_cast<uint32_t>(rgb[1] * 255.0 + 0.5) << 8 | static_cast<uint32_t>(rgb[2] * 255.0 + 0.5);
            }
            line[c] = pixel;
        }
    }
    cairo_surface_mark_dirty(image.get());
    return image;
}

void DrawSweep(cairo_t* cr, const Frame& f, const PersistenceFrame& frame) {
    cairo_set_line_width(cr, 1.3);
    cairo_set_source_rgba(cr, 0.35, 0.95, 1.0, 0.9);
    for (std::size_t i = 0; i < frame.sweep.size(); ++i) {
        const double x = f.PixelX(frame.startFreq + static_cast<double>(i) * frame.binSize);
        const double y = f.PixelY(std::clamp(static_cast<double>(frame.sweep[i]), f.y0, f.y1));
        if (i == 0) {
            cairo_move_to(cr, x, y);
        } else {
            cairo_line_to(cr, x, y);
        }
    }
    cairo_stroke(cr);
}

}  // namespace

std::array<double, 3> Inferno(double t) {
    const double x = std::clamp(t, 0.0, 1.0) * 8.0;
    const int k = std::min(static_cast<int>(x), 7);
    const double w = x - k;
    std::array<double, 3> rgb{};
    for (int i = 0; i < 3; ++i) rgb[i] = ((1.0 - w) * kInferno[k][i] + w * kInferno[k + 1][i]) / 255.0;
    return rgb;
}

bool WritePersistencePng(const std::string& path, const PersistenceFrame& frame, const PlotText& text) {
    Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight), &cairo_surface_destroy);
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> context(cairo_create(surface.get()), &cairo_destroy);
    cairo_t* cr = context.get();
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);

    // Each column spans its bins, each row its share of the scale.
    const std::size_t bins = std::max<std::size_t>(frame.sweep.size(), 1);
    const double low = frame.startFreq - frame.binSize / 2;
    const double high = low + static_cast<double>(bins) * frame.binSize;
    const Frame f{low, high > low ? high : low + 1.0, frame.refLevel - frame.frameScale, frame.refLevel};
    const double areaWidth = kWidth - kLeft - kRight, areaHeight = kHeight - kTop - kBottom;
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_rectangle(cr, kLeft, kTop, areaWidth, areaHeight);
    cairo_fill(cr);
    if (frame.width > 0) {
        Surface cells = CellImage(frame);
        cairo_save(cr);
        cairo_translate(cr, kLeft, kTop);
        cairo_scale(cr, areaWidth / frame.width, areaHeight / frame.height);
        cairo_set_source_surface(cr, cells.get(), 0, 0);
        cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
        cairo_paint(cr);
        cairo_restore(cr);
    }
    DrawGrid(cr, f, "Level (dBm)", kGridOverImage);
    cairo_save(cr);
    cairo_rectangle(cr, kLeft, kTop, areaWidth, areaHeight);
    cairo_clip(cr);
    DrawSweep(cr, f, frame);
    cairo_restore(cr);

    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    Text(cr, kLeft, 35, text.title, 0.0, 18);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    Text(cr, kLeft, kHeight - 25, text.caption, 0.0, 13);
    // The colour scale's key: rare on the left, frequent on the right.
    const double keyX = kWidth - kRight - 200, keyY = 24;
    for (int i = 0; i < 200; ++i) {
        const auto rgb = Inferno(kFaintest + (1.0 - kFaintest) * i / 199.0);
        cairo_set_source_rgb(cr, rgb[0], rgb[1], rgb[2]);
        cairo_rectangle(cr, keyX + i, keyY, 1, 12);
        cairo_fill(cr);
    }
    cairo_set_source_rgb(cr, 0.2, 0.2, 0.2);
    Text(cr, keyX - 6, keyY + 11, "rare", 1.0, 12);
    Text(cr, keyX + 200, keyY + 28, "frequent", 1.0, 12);
    cairo_set_source_rgb(cr, 0.1, 0.6, 0.7);
    Text(cr, keyX - 50, keyY + 28, "frame sweep", 1.0, 12);

    return cairo_surface_write_to_png(surface.get(), path.c_str()) == CAIRO_STATUS_SUCCESS;
}

}  // namespace qortool
