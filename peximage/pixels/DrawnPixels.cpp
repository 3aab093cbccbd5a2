#include "peximage/pixels/DrawnPixels.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/ReasonWatch.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/Scaling.h"

#include <algorithm>
#include <limits>

namespace pex {
namespace {

std::size_t byteCount(std::int64_t width, std::int64_t height) {
    const bool allowed = ImageLimits::current().allows(width, height) &&
                         std::max(width, height) <= std::numeric_limits<int>::max();
    return allowed ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4 : 0;
}

} // namespace

PixelBuffer blankPixels(std::int64_t width, std::int64_t height) {
    const std::size_t bytes = byteCount(width, height);
    return bytes > 0 ? PixelBuffer::makeZeroed(bytes) : PixelBuffer();
}

PixelBuffer drawnPixels(const std::optional<CGImage>& picture, std::int64_t width, std::int64_t height,
                        PixelLayout layout) {
    const std::size_t bytes = byteCount(width, height);
    if (!picture || bytes == 0) return blankPixels(width, height);
    const ReasonWatch watch;
    const PixelSize size{static_cast<int>(width), static_cast<int>(height)};
    const std::optional<CGImage> scaled = scaledImage(*picture, size, Interpolation::smooth);
    const PixelBuffer pixels = PixelBuffer::make(bytes);
    const MutablePixelView view{pixels.data(), size.width, size.height, std::ptrdiff_t{size.width} * 4,
                                layout};
    const bool drawn = scaled && pixels && convertPixels(*scaled, view, CGColorSpace::deviceRGB());
    if (drawn) return pixels;
    return watch.hasSeenBreak() ? PixelBuffer() : blankPixels(width, height);
}

} // namespace pex
