#pragma once

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/raster/Scaling.h"

#include <vector>

/// Opens the bytes by the codec, whatever they begin with, and decodes the picture whole and reduced.
inline int decodeAll(const pex::ImageCodec& codec, const std::uint8_t* bytes, std::size_t count) {
    pex::ImageLimits limits;
    limits.maxPixels = 1'000'000;
    limits.maxMetadataBytes = 100'000;
    const pex::CGDataProvider file{pex::Data(std::vector<std::uint8_t>(bytes, bytes + count))};
    const auto opened = codec.open(file, limits);
    if (!opened || !opened->source) return 0;
    const pex::CGImage image = pex::CGImage::make(opened->source);
    pex::scaledImage(image, {1 + image.width() / 3, 1 + image.height() / 3}, pex::Interpolation::smooth);
    image.isIncomplete();
    return 0;
}
