#include "peximage/image/PexImage.h"

namespace pex {

std::optional<CGImage> PexImage::cropToCGImnage(const CGRect& rect) const {
    return cgImage ? cgImage->cropping(rect) : std::nullopt;
}

std::shared_ptr<PexImage> PexImage::crop(const ToRect& target) const {
    const std::optional<CGImage> cut = cropToCGImnage(target.to);
    return cut ? make(*cut) : nullptr;
}

std::shared_ptr<PexImage> PexImage::crop(const ToTargetRect& target) const {
    return crop({.to = target.toTargetRect});
}

} // namespace pex
