#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/codecs/ImageMetadata.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace pex {

/// Of a TIFF file with offsets of 32 bits: its first directory without what describes the pixels becomes an
/// EXIF block, in which a maker's notes stand where they stood in the file if that is near its beginning.
ImageMetadata readTiffMetadata(const CGDataProvider& bytes, const ImageLimits& limits);

/// An EXIF block written anew, without the gaps that removed values left and without its thumbnail; a maker's
/// notes move only if they stood far from the beginning. Empty when nothing in it describes the photo.
Data compactExif(std::span<const std::uint8_t> block);

/// A TIFF file, as the codec library has written it with one directory of pictures, and the metadata in it.
/// The EXIF block comes first, so that what refers to places in it stays true. Absent when the file would be
/// too long, or is none.
std::optional<std::vector<std::uint8_t>> tiffWithMetadata(std::span<const std::uint8_t> file,
                                                          const ImageMetadata& metadata);

} // namespace pex
