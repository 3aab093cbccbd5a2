#include "peximage/platform/raster/ConvertedImage.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/ColorConversion.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <vector>

namespace pex {
namespace {

/// Row by row through straight colour, which is what colour conversion works on.
void convertColours(PixelView from, const ColorConversion& conversion, MutablePixelView to) {
    forEachStrip(from.height, [&](int begin, int end) {
        const bool grey = from.layout == PixelLayout::grey;
        std::vector<std::uint8_t> straight(static_cast<std::size_t>(from.width) * 4, 255);
        for (int y = begin; y < end; ++y) {
            const std::uint8_t* row = from.row(y);
            if (!grey) {
                kernels::convertRow(row, from.layout, straight.data(), PixelLayout::straightLast, from.width);
                row = straight.data();
            }
            conversion.convertRow(row, straight.data(), from.width);
            kernels::convertRow(straight.data(), PixelLayout::straightLast, to.row(y), to.layout, from.width);
        }
    });
}

void convertLayout(PixelView from, MutablePixelView to) {
    forEachStrip(from.height, [&](int begin, int end) {
        for (int y = begin; y < end; ++y)
            kernels::convertRow(from.row(y), from.layout, to.row(y), to.layout, from.width);
    });
}

} // namespace

bool sameColours(const CGColorSpace& a, const CGColorSpace& b) {
    return a == b || (a.isStandard() && b.isStandard());
}

bool convertPixels(const CGImage& image, MutablePixelView to, const CGColorSpace& colorSpace) {
    const std::optional<PixelView> from = image.pixels();
    return from && absentWithoutMemory([&] {
               if (sameColours(image.colorSpace(), colorSpace)) {
                   convertLayout(*from, to);
                   return true;
               }
               const bool isGrey = from->layout == PixelLayout::grey;
               const auto pixels = isGrey ? ColorConversion::Pixels::gray : ColorConversion::Pixels::rgba;
               const auto conversion = ColorConversion::make(image.colorSpace(), pixels, colorSpace);
               if (conversion) convertColours(*from, *conversion, to);
               return conversion != nullptr;
           });
}

std::optional<CGImage> convertedImage(const CGImage& image, PixelLayout layout,
                                      const CGColorSpace& colorSpace) {
    if (image.layout() == layout && sameColours(image.colorSpace(), colorSpace)) return image;
    const std::ptrdiff_t stride = std::ptrdiff_t{image.width()} * bytesPerPixel(layout);
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(image.height()));
    if (!buffer) return std::nullopt;
    const MutablePixelView to{buffer.data(), image.width(), image.height(), stride, layout};
    if (!convertPixels(image, to, colorSpace)) return std::nullopt;
    return CGImage::make(image.width(), image.height(), stride, layout, colorSpace, std::move(buffer));
}

} // namespace pex
