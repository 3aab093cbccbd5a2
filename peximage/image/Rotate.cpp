#include "peximage/image/PexImage.h"
#include "peximage/platform/raster/Turning.h"

#include <numbers>

namespace pex {
namespace {

/// The orientation that makes the same turn. y grows upward, so a positive angle turns anticlockwise.
Orientation orientationFor(PexImage::RotationDirection direction) {
    switch (direction) {
    case PexImage::RotationDirection::r90Clockwhise:
        return Orientation::left;
    case PexImage::RotationDirection::r90AntiClockWise:
        return Orientation::right;
    case PexImage::RotationDirection::r180:
        return Orientation::down;
    case PexImage::RotationDirection::fixHorizon:
    case PexImage::RotationDirection::none:
        break;
    }
    return Orientation::up;
}

} // namespace

std::shared_ptr<PexImage> PexImage::rotate(RotationDirection direction) {
    if (direction == RotationDirection::none) return shared_from_this();
    const std::optional<CGImage> turned =
        cgImage ? turnedImage(*cgImage, orientationFor(direction)) : std::nullopt;
    return turned ? make(*turned) : nullptr;
}

std::shared_ptr<PexImage> PexImage::rotate(const Degrees& angle) {
    const auto rotated = image->rotate(angle.degrees.value);
    return rotated ? make(rotated, {}) : shared_from_this();
}

std::shared_ptr<PexImage> PexImage::rotateAndZoom(double byDegrees) const {
    const std::optional<CIImage> picture = ciImage();
    return picture ? make(picture->straightened(byDegrees / 180 * std::numbers::pi)) : nullptr;
}

} // namespace pex
