#include "peximage/platform/raster/OrientedImage.h"

#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/OrientRows.h"

#include <utility>

namespace pex {

std::optional<CGImage> orientedImage(const CGImage& image, Orientation orientation) {
    constexpr int stripRows = 128; // whole tiles of the kernel
    if (orientation == Orientation::up) return image;
    const std::optional<PixelView> from = image.pixels();
    if (!from) return std::nullopt;
    const bool swaps = swapsSides(orientation);
    const int width = swaps ? from->height : from->width, height = swaps ? from->width : from->height;
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytesPerPixel(from->layout);
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
    if (!buffer) return std::nullopt;
    const MutablePixelView upright{buffer.data(), width, height, stride, from->layout};
    forEachStrip(
        from->height,
        [&](int begin, int end) {
            kernels::orientRows(from->part(0, begin, from->width, end - begin), begin, orientation, upright);
        },
        stripRows);
    return CGImage::make(width, height, stride, from->layout, image.colorSpace(), std::move(buffer));
}

} // namespace pex
