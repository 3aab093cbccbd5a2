#include "peximage/platform/codecs/ImageLimits.h"

#include "peximage/platform/foundation/Guarded.h"

namespace pex {
namespace {

Guarded<ImageLimits> limitsInForce;

} // namespace

ImageLimits ImageLimits::current() { return limitsInForce.get(); }

void ImageLimits::setCurrent(const ImageLimits& limits) { limitsInForce.set(limits); }

bool ImageLimits::allows(std::int64_t width, std::int64_t height) const {
    return width >= 1 && height >= 1 && height <= maxPixels && width <= maxPixels / height;
}

} // namespace pex
