#include "peximage/platform/raster/StripImage.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/Strips.h"

namespace pex {

std::optional<CGImage> imageOfStrips(PixelSize size, PixelLayout layout, const CGColorSpace& colorSpace,
                                     const std::function<void(MutablePixelView strip, int firstRow)>& fill) {
    const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(layout);
    PixelBuffer buffer =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height));
    if (!buffer) return std::nullopt;
    const MutablePixelView whole{buffer.data(), size.width, size.height, stride, layout};
    return absentWithoutMemory([&] {
        forEachStrip(size.height,
                     [&](int begin, int end) { fill(whole.part(0, begin, size.width, end - begin), begin); });
        return CGImage::make(size.width, size.height, stride, layout, colorSpace, std::move(buffer));
    });
}

} // namespace pex
