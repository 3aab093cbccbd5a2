#include "peximage/platform/codecs/ImageLimits.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/DecodingLimits.h"

#include <algorithm>
#include <string>

namespace pex {
namespace {

Guarded<ImageLimits> limitsInForce;

} // namespace

ImageLimits ImageLimits::current() { return limitsInForce.get(); }

void ImageLimits::setCurrent(const ImageLimits& limits) {
    limitsInForce.set(limits);
    decodingLimits::setMemory(limits.maxPixelMemory);
    decodingLimits::setSeconds(limits.maxDecodingSeconds);
}

bool ImageLimits::allows(std::int64_t width, std::int64_t height) const {
    if (width < 1 || height < 1) {
        giveReason(ReasonCode::damaged, "damaged: a picture without pixels");
        return false;
    }
    if (height <= maxPixels && width <= maxPixels / height) return true;
    giveReason(ReasonCode::overLimit, std::to_string(width) + " × " + std::to_string(height) +
                                          " pixels, over the limit of " + std::to_string(maxPixels));
    return false;
}

bool ImageLimits::allowsInBytes(std::int64_t width, std::int64_t height, std::size_t bytes) const {
    constexpr std::int64_t fewPixels = std::int64_t{1} << 26;
    const std::int64_t pixels = width * height, most = std::max<std::int64_t>(maxPixelsPerByte, 1);
    if (pixels <= fewPixels || static_cast<std::uint64_t>(pixels / most) <= bytes) return true;
    giveReason(ReasonCode::overLimit, std::to_string(width) + " × " + std::to_string(height) + " pixels in " +
                                          std::to_string(bytes) + " bytes, over the limit of " +
                                          std::to_string(most) + " pixels a byte");
    return false;
}

bool ImageLimits::allowsBytes(std::size_t bytes) const {
    if (bytes <= maxSourceBytes) return true;
    giveReason(ReasonCode::overLimit,
               std::to_string(bytes) + " bytes, over the limit of " + std::to_string(maxSourceBytes));
    return false;
}

} // namespace pex
