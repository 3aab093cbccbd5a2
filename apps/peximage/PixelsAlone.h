#pragma once

#include "peximage/image/PexImage.h"

#include <memory>

/// The image's pixels as an image of as many points: what the library sizes in points then fits them,
/// whatever resolution the file stated.
inline std::shared_ptr<pex::PexImage> pixelsAlone(const std::shared_ptr<pex::PexImage>& image) {
    return image->cgImage ? pex::PexImage::make(*image->cgImage) : image;
}

/// The image of a bitmap whose alpha was written over colours that nothing multiplied it into, so that they
/// are taken as straight ones.
inline std::shared_ptr<pex::PexImage> withStraightColours(const std::shared_ptr<pex::PexImage>& image) {
    const bool isBitmap =
        image && image->cgImage && image->cgImage->layout() == pex::PixelLayout::premultipliedFirst;
    const auto straight =
        isBitmap ? image->cgImage->reinterpreted(pex::PixelLayout::straightFirst) : std::nullopt;
    return straight ? pex::PexImage::make(*straight) : image;
}
