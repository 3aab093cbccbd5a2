#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/ImageMetadata.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace pex {

/// From the segments before the first scan; nothing else of the file is read.
ImageMetadata readJpegMetadata(const CGDataProvider& bytes, const ImageLimits& limits);

/// As whole segments, to stand behind the JFIF one: EXIF, XMP in one segment or several, image resources.
/// What a segment cannot hold must have been left out (`ImageMetadata::heldBy`).
std::vector<std::uint8_t> jpegMetadataSegments(const ImageMetadata& metadata);

/// The file with these segments in the place of its own metadata, its picture untouched; absent for what is
/// no JPEG.
std::optional<Data> jpegWithMetadata(const Data& file, const ImageMetadata& metadata);

/// The most bytes of an EXIF block in a JPEG.
inline constexpr std::size_t mostExifInJpeg = 0xFFFF - 2 - 6;

} // namespace pex
