#pragma once

// Between pictures of the library and cairo's surfaces, and so GTK's drawing. Headers alone: the program
// links cairo.
#include "peximage/platform/raster/ApplicationPixels.h"

#include <bit>
#include <cairo.h>
#include <memory>
#include <optional>

namespace pex {

/// A surface with its owner.
using CairoSurface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

/// How cairo's pixels, words of 32 bits, lie in memory.
static_assert(std::endian::native == std::endian::little);
constexpr PixelBytes cairoBytes = PixelBytes::bgra;

/// A copy as an image surface, ARGB32 with alpha and RGB24 without, `scale` pixels for a unit of drawing.
/// Colours keep their numbers; no layout of cairo is one of the library's, so nothing is shared. Null when
/// the pixels or memory cannot be had. Any thread.
inline CairoSurface toCairo(const CGImage& image, double scale = 1) {
    const cairo_format_t format = hasAlpha(image.layout()) ? CAIRO_FORMAT_ARGB32 : CAIRO_FORMAT_RGB24;
    CairoSurface surface(cairo_image_surface_create(format, image.width(), image.height()),
                         &cairo_surface_destroy);
    unsigned char* const data = cairo_image_surface_get_data(surface.get()); // null without memory
    if (!data || !copyPixels(image, {data, image.width(), image.height(),
                                     cairo_image_surface_get_stride(surface.get()), cairoBytes, true}))
        return {nullptr, &cairo_surface_destroy};
    cairo_surface_mark_dirty(surface.get());
    cairo_surface_set_device_scale(surface.get(), scale, scale);
    return surface;
}

/// An image of a copy of an image surface, in its pixels. Absent for other surfaces and for formats other
/// than ARGB32 and RGB24, and when memory cannot be had.
inline std::optional<CGImage> fromCairo(cairo_surface_t* surface) {
    cairo_surface_flush(surface);
    const unsigned char* const data = cairo_image_surface_get_data(surface);
    const cairo_format_t format = data ? cairo_image_surface_get_format(surface) : CAIRO_FORMAT_INVALID;
    if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return std::nullopt;
    const bool hasAlpha = format == CAIRO_FORMAT_ARGB32;
    return imageOfCopied({data, cairo_image_surface_get_width(surface),
                          cairo_image_surface_get_height(surface), cairo_image_surface_get_stride(surface),
                          hasAlpha ? cairoBytes : PixelBytes::bgrx, true});
}

} // namespace pex
