#include "tools/sheet.h"

#include <cairo.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tools/params.h"
#include "tools/render_workers.h"

namespace reelfx::tool {

namespace {

constexpr int32_t kMargin = 12;
constexpr double kBackground[3] = {0.13, 0.13, 0.15};

// Cairo wants premultiplied alpha; the module's pictures are straight.
uint32_t premultiply(uint32_t p) {
    const uint32_t a = p >> 24;
    auto ch = [a](uint32_t c) { return (c * a + 127) / 255; };
    return a << 24 | ch((p >> 16) & 0xFF) << 16 | ch((p >> 8) & 0xFF) << 8 | ch(p & 0xFF);
}

Picture renderTile(const Module& module, int32_t effect, const Picture& tileArgb,
                   const SheetOptions& o) {
    Instance inst(module, effect, tileArgb.width, tileArgb.height);
    const bool ayuv = o.format == kFourccAyuv;
    const Picture source = ayuv ? toAyuv(tileArgb) : tileArgb;
    Picture target(source.width, source.height);
    RenderOptions ro;
    ro.progress = o.progress;
    ro.format = o.format;
    if (inst.render(&source, target, ro) != 0) {
        throw std::runtime_error("the module refused to render effect " + std::to_string(effect));
    }
    return ayuv ? toArgb(target) : target;
}

// Every effect's tile, rendered on as many threads as the process has cores,
// each tile by an instance of its own.
std::vector<Picture> renderTiles(const Module& module, const std::vector<EffectInfo>& effects,
                                 const Picture& tile, const SheetOptions& o) {
    std::vector<Picture> tiles(effects.size());
    std::atomic<size_t> nextTile{0};
    std::mutex failedLock;
    std::exception_ptr failed;
    auto work = [&] {
        for (size_t i = nextTile++; i < effects.size(); i = nextTile++) {
            try {
                tiles[i] = renderTile(module, effects[i].index, tile, o);
            } catch (...) {
                const std::lock_guard<std::mutex> hold(failedLock);
                if (!failed) failed = std::current_exception();
            }
        }
    };
    const auto threads = std::min<size_t>(static_cast<size_t>(usableCores()), effects.size());
    std::vector<std::thread> helpers;
    for (size_t t = 1; t < threads; ++t) helpers.emplace_back(work);
    work();
    for (std::thread& t : helpers) t.join();
    if (failed) std::rethrow_exception(failed);
    return tiles;
}

// Cairo records its first failure in the context or surface and ignores
// later calls; a failure becomes an error here.
void check(cairo_status_t status, const char* what) {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(std::string("cannot draw the contact sheet (") + what +
                                 "): " + cairo_status_to_string(status));
    }
}

struct SurfaceGuard {
    cairo_surface_t* surface;
    ~SurfaceGuard() { cairo_surface_destroy(surface); }
};
struct ContextGuard {
    cairo_t* cr;
    ~ContextGuard() { cairo_destroy(cr); }
};

}  // namespace

Picture makeSheet(const Module& module, const Picture& tile, const SheetOptions& options) {
    const std::vector<EffectInfo> effects = module.catalogue();
    const int32_t columns = std::max<int32_t>(1, options.columns);
    const int32_t rows = (static_cast<int32_t>(effects.size()) + columns - 1) / columns;
    const int32_t labelHeight = std::max<int32_t>(18, tile.width / 11);
    const int32_t titleHeight = labelHeight + kMargin;
    const int32_t width = kMargin + columns * (tile.width + kMargin);
    const int32_t height = titleHeight + kMargin + rows * (tile.height + labelHeight + kMargin);

    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    const SurfaceGuard surfaceGuard{surface};
    check(cairo_surface_status(surface), "sheet surface");
    cairo_t* cr = cairo_create(surface);
    const ContextGuard contextGuard{cr};
    check(cairo_status(cr), "drawing context");
    cairo_set_source_rgb(cr, kBackground[0], kBackground[1], kBackground[2]);
    cairo_paint(cr);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr, labelHeight * 0.75);
    cairo_set_source_rgb(cr, 1, 1, 1);
    const std::string title = "reelfx: " + std::to_string(effects.size()) +
                              " effects at their initial parameters, progress " +
                              formatNumber(options.progress) +
                              (options.format == kFourccAyuv ? ", AYUV" : ", ARGB");
    cairo_move_to(cr, kMargin, kMargin + labelHeight * 0.8);
    cairo_show_text(cr, title.c_str());

    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, labelHeight * 0.62);
    const std::vector<Picture> tiles = renderTiles(module, effects, tile, options);
    Picture premultiplied(tile.width, tile.height);
    for (size_t i = 0; i < effects.size(); ++i) {
        const int32_t col = static_cast<int32_t>(i) % columns;
        const int32_t row = static_cast<int32_t>(i) / columns;
        const double x = kMargin + col * (tile.width + kMargin);
        const double y = titleHeight + kMargin + row * (tile.height + labelHeight + kMargin);

        const Picture& rendered = tiles[i];
        for (int32_t ty = 0; ty < tile.height; ++ty) {
            for (int32_t tx = 0; tx < tile.width; ++tx)
                premultiplied.at(tx, ty) = premultiply(rendered.at(tx, ty));
        }
        cairo_surface_t* image = cairo_image_surface_create_for_data(
            reinterpret_cast<unsigned char*>(premultiplied.data()), CAIRO_FORMAT_ARGB32, tile.width,
            tile.height, premultiplied.stride);
        const SurfaceGuard imageGuard{image};
        check(cairo_surface_status(image), "tile surface");
        cairo_set_source_surface(cr, image, x, y);
        cairo_paint(cr);

        const std::string label = std::to_string(effects[i].index) + "  " + effects[i].name;
        cairo_set_source_rgb(cr, 0.92, 0.92, 0.92);
        cairo_move_to(cr, x, y + tile.height + labelHeight * 0.78);
        cairo_show_text(cr, label.c_str());
    }
    check(cairo_status(cr), "drawing");
    cairo_surface_flush(surface);
    check(cairo_surface_status(surface), "sheet surface");

    // The background is opaque, so the sheet is opaque: premultiplied and
    // straight words are the same.
    Picture out(width, height);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    for (int32_t y = 0; y < height; ++y) {
        std::memcpy(out.row(y), data + static_cast<ptrdiff_t>(y) * stride,
                    static_cast<size_t>(width) * 4);
    }
    return out;
}

}  // namespace reelfx::tool
