#include "peximage/platform/raster/Turning.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/OrientedSource.h"
#include "peximage/platform/raster/PixelSource.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/OrientRows.h"

#include <utility>

namespace pex {

std::optional<CGImage> turnedImage(const CGImage& image, Orientation orientation) {
    constexpr int stripRows = 128; // whole tiles of the kernel
    if (orientation == Orientation::up) return image;
    if (const auto source = image.source()) return CGImage::make(makeUpright(source, orientation));
    const std::optional<PixelView> from = image.pixels();
    if (!from) return std::nullopt;
    int width = from->width, height = from->height;
    if (swapsSides(orientation)) std::swap(width, height);
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytesPerPixel(from->layout);
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
    if (!buffer) return std::nullopt;
    const MutablePixelView to{buffer.data(), width, height, stride, from->layout};
    const auto turnStrip = [&](int begin, int end) {
        kernels::orientRows(from->part(0, begin, from->width, end - begin), begin, orientation, to);
    };
    return absentWithoutMemory([&] {
        forEachStrip(from->height, turnStrip, stripRows);
        return CGImage::make(width, height, stride, from->layout, image.colorSpace(), std::move(buffer));
    });
}

CGRect rectBeforeTurning(const CGRect& turned, CGSize turnedSize, Orientation orientation) {
    using enum Orientation;
    const auto is = [orientation](auto... any) { return ((orientation == any) || ...); };
    CGRect rect = turned;
    if (is(upMirrored, down, right, rightMirrored)) rect.origin.x = turnedSize.width - turned.maxX();
    if (is(down, downMirrored, left, rightMirrored)) rect.origin.y = turnedSize.height - turned.maxY();
    if (swapsSides(orientation)) {
        std::swap(rect.origin.x, rect.origin.y);
        std::swap(rect.size.width, rect.size.height);
    }
    return rect;
}

} // namespace pex
