#include "peximage/platform/codecs/ImageLimits.h"

#include <mutex>

namespace pex {
namespace {

std::mutex limitsMutex;
ImageLimits limitsInForce;

} // namespace

ImageLimits ImageLimits::current() {
    const std::lock_guard lock(limitsMutex);
    return limitsInForce;
}

void ImageLimits::setCurrent(const ImageLimits& limits) {
    const std::lock_guard lock(limitsMutex);
    limitsInForce = limits;
}

bool ImageLimits::allows(std::int64_t width, std::int64_t height) const {
    return width >= 1 && height >= 1 && height <= maxPixels && width <= maxPixels / height;
}

} // namespace pex
