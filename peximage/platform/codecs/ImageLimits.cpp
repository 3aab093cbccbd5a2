#include "peximage/platform/codecs/ImageLimits.h"

#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/Reason.h"

#include <string>

namespace pex {
namespace {

Guarded<ImageLimits> limitsInForce;

} // namespace

ImageLimits ImageLimits::current() { return limitsInForce.get(); }

void ImageLimits::setCurrent(const ImageLimits& limits) { limitsInForce.set(limits); }

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

bool ImageLimits::allowsBytes(std::size_t bytes) const {
    if (bytes <= maxSourceBytes) return true;
    giveReason(ReasonCode::overLimit,
               std::to_string(bytes) + " bytes, over the limit of " + std::to_string(maxSourceBytes));
    return false;
}

} // namespace pex
