#include "tools/builtin_clip.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace reelfx::tool {

namespace {

// Cairo records its first failure and ignores later calls.
void check(cairo_status_t status) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(std::string("cannot draw the built-in test clip: ") +
                                 cairo_status_to_string(status));
    }
}

}  // namespace

int32_t clipFrameCount(const ClipSettings& clip) {
    return std::max<int32_t>(1, static_cast<int32_t>(std::lround(clip.duration * clip.fps)));
}

Picture makeClipFrame(const ClipSettings& clip, int32_t frame) {
    // The host's test picture supplies bars, gradients, fine detail and noise
    // drifting with the frame; video is opaque, so alpha is set to 255.
    Picture p = makeTestPicture(clip.width, clip.height, frame);
    for (uint32_t& w : p.words) w |= 0xFF000000u;

    const double w = clip.width, h = clip.height;
    const double t = frame / clip.fps;
    // Cairo draws into the words directly: opaque ARGB32 is the same whether
    // premultiplied or not.
    cairo_surface_t* surface =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(p.data()),
                                            CAIRO_FORMAT_ARGB32, p.width, p.height, p.stride);
    cairo_t* cr = cairo_create(surface);

    // A ring bouncing across the picture.
    const double r = std::min(w, h) * 0.12;
    const double cx = r + (w - 2 * r) * (0.5 + 0.5 * std::sin(t * 1.7));
    const double cy = r + (h - 2 * r) * (0.5 + 0.5 * std::cos(t * 1.1));
    cairo_set_line_width(cr, std::max(2.0, r * 0.25));
    cairo_set_source_rgb(cr, 1.0, 0.85, 0.1);
    cairo_arc(cr, cx, cy, r, 0, 2 * M_PI);
    cairo_stroke(cr);

    // A caption card with the time code, sliding left to right.
    char caption[64];
    std::snprintf(caption, sizeof caption, "reelfx  %02d:%02d.%02d", static_cast<int>(t) / 60,
                  static_cast<int>(t) % 60,
                  frame % std::max(1, static_cast<int>(std::lround(clip.fps))));
    const double size = std::max(8.0, h / 12);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, size);
    cairo_text_extents_t ext;
    cairo_text_extents(cr, caption, &ext);
    const double travel = std::max(1.0, w - ext.width - size);
    const double x = size * 0.5 + std::fmod(t * w * 0.15, travel);
    const double y = h * 0.5 + size * 0.4;
    cairo_set_source_rgba(cr, 0.05, 0.05, 0.1, 0.8);
    cairo_rectangle(cr, x - size * 0.3, y - size * 1.05, ext.width + size * 0.6, size * 1.4);
    cairo_fill(cr);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_move_to(cr, x - ext.x_bearing, y);
    cairo_show_text(cr, caption);

    // Small print running along the bottom: text-like fine shapes.
    const char* line = "The quick brown fox jumps over the lazy dog 0123456789";
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, std::max(6.0, h / 28));
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_move_to(cr, w * 0.05 - std::fmod(t * 40, w * 0.5), h - std::max(4.0, h / 40));
    cairo_show_text(cr, line);

    const cairo_status_t drawn = cairo_status(cr);
    cairo_destroy(cr);
    cairo_surface_flush(surface);
    const cairo_status_t flushed = cairo_surface_status(surface);
    cairo_surface_destroy(surface);
    check(drawn);
    check(flushed);
    // Anti-aliased edges over opaque pixels stay opaque.
    for (uint32_t& word : p.words) word |= 0xFF000000u;
    return p;
}

void releaseFontCaches() {
    cairo_debug_reset_static_data();
    FcFini();
}

}  // namespace reelfx::tool
