#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/ImageMetadata.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace pex {

/// Wherever the chunks stand, also behind the pixels; of the others only the heads are read.
ImageMetadata readPngMetadata(const CGDataProvider& bytes, const ImageLimits& limits);

struct PngChunk {
    std::string_view type; // four letters
    std::vector<std::uint8_t> content;
};
/// EXIF and XMP in chunks of their own, image resources as a text of digits, as is customary.
std::vector<PngChunk> pngMetadataChunks(const ImageMetadata& metadata);

} // namespace pex
