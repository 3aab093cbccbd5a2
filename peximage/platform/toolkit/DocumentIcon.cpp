#include "peximage/platform/toolkit/DocumentIcon.h"

#include "peximage/platform/raster/CGContext.h"

#include <algorithm>

namespace pex {
namespace {

constexpr CGColor edge{0.55, 0.58, 0.62, 1}, paper{0.97, 0.97, 0.98, 1}, fold{0.82, 0.84, 0.87, 1},
    line{0.78, 0.80, 0.84, 1};

/// A sheet with its upper right corner cut off at 45°, from the top of `sheet` down.
void fillSheet(CGContext& context, const CGRect& sheet, double corner, const CGColor& color) {
    context.setFillColor(color);
    context.fill({sheet.origin.x, sheet.origin.y, sheet.size.width, sheet.size.height - corner});
    for (int down = 0; down < corner; ++down)
        context.fill({sheet.origin.x, sheet.maxY() - down - 1, sheet.size.width - corner + down, 1});
}

/// The corner turned down: a triangle below the cut.
void fillFold(CGContext& context, const CGRect& sheet, double corner, const CGColor& color) {
    context.setFillColor(color);
    for (int down = 0; down < corner; ++down)
        context.fill({sheet.maxX() - corner, sheet.maxY() - down - 1, std::max<double>(down, 1), 1});
}

void fillLines(CGContext& context, const CGRect& sheet, double side) {
    context.setFillColor(line);
    for (const double y : {0.50, 0.40, 0.30, 0.20}) {
        const double width = sheet.size.width * (y > 0.25 ? 0.70 : 0.45);
        context.fill({sheet.origin.x + sheet.size.width * 0.15, y * side, width, side * 0.035});
    }
}

} // namespace

std::optional<CGImage> drawDocumentIcon(int side) {
    constexpr int samples = 4, mostPixels = 4096; // drawn larger, so that slanted edges come out smooth
    const int large = std::max(std::min(side * samples, mostPixels), side);
    const auto context = CGContext::make(large, large, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
    const auto reduced = CGContext::make(side, side, PixelLayout::premultipliedLast, CGColorSpace::sRGB());
    if (!context || !reduced) return std::nullopt;
    const double size = large, border = size / 64;
    const CGRect sheet{size * 0.16, size * 0.06, size * 0.68, size * 0.88};
    const CGRect inside{sheet.origin.x + border, sheet.origin.y + border, sheet.size.width - 2 * border,
                        sheet.size.height - 2 * border};
    const double corner = size * 0.2;
    fillSheet(*context, sheet, corner, edge);
    fillSheet(*context, inside, corner - border / 2, paper);
    fillFold(*context, inside, corner - border / 2, fold);
    fillLines(*context, sheet, size);
    const std::optional<CGImage> drawn = context->makeImage();
    if (!drawn) return std::nullopt;
    reduced->draw(*drawn, {0, 0, static_cast<double>(side), static_cast<double>(side)});
    return reduced->makeImage();
}

} // namespace pex
