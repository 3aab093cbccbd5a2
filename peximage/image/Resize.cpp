#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/OutOfMemory.h"

#include <algorithm>
#include <cmath>

namespace pex {
namespace {

CGSize scaledToWholePixels(CGSize size, double factor) {
    return {std::max(1.0, std::trunc(size.width * factor)), std::max(1.0, std::trunc(size.height * factor))};
}

} // namespace

std::shared_ptr<PexImage> PexImage::resize(const To& target) const {
    return absentWithoutMemory([&]() -> std::shared_ptr<PexImage> {
        const std::optional<CIImage> picture = ciImage();
        return picture ? make(picture->resized({.to = target.to})) : nullptr;
    });
}

std::shared_ptr<PexImage> PexImage::resize(const ToWidth& target) {
    const auto resized = resize({.to = size * (target.toWidth.value / size.width)});
    return resized ? resized : shared_from_this();
}

std::shared_ptr<PexImage> PexImage::resize(const ToHeight& target) {
    const auto resized = resize({.to = size * (target.toHeight.value / size.height)});
    return resized ? resized : shared_from_this();
}

std::shared_ptr<PexImage> PexImage::resize(const WithMaxSide& bound) const {
    const double factor = bound.withMaxSide.value / std::max(size.width, size.height);
    const CGSize target = factor < 1 ? scaledToWholePixels(size, factor) : size;
    return target.width > 0 && target.height > 0 ? resize({.to = target}) : nullptr;
}

std::shared_ptr<PexImage> PexImage::resize(const WithMinSideBoundedTo& bound) {
    const double factor = bound.withMinSideBoundedTo.value / std::min(size.width, size.height);
    if (factor >= 1) return shared_from_this();
    return resize({.to = scaledToWholePixels(size, factor)});
}

} // namespace pex
