#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/ImageProperties.h"
#include "peximage/platform/codecs/PropertyDictionary.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/raster/CGImage.h"

#include <cstddef>
#include <optional>

namespace pex {

/// An encoded image file: what its header says, and its pixels when they are asked for. The format is told
/// from the bytes, never from a name. The EXIF orientation is reported, not applied. An immutable value.
class PEX_EXPORT CGImageSource {
  public:
    /// From bytes in memory. Absent when they are no image of a known format, or break an `ImageLimits`.
    static std::optional<CGImageSource> make(const Data& bytes);
    /// From a file, of which only the header is read until `createImage`; the file is not kept open. Absent
    /// also when it cannot be read.
    static std::optional<CGImageSource> make(const URL& file);

    /// Whether this build can read the format.
    static bool reads(ImageFormat format);
    /// The format that a file's first bytes show, also one that this build cannot read; absent for an unknown
    /// one and when the file cannot be read.
    static std::optional<ImageFormat> formatOf(const URL& file);

    const ImageProperties& properties() const { return properties_; }
    /// All that the file says of its first image, by the keys of PropertyDictionary.h.
    PropertyDictionary copyProperties() const;
    /// The blocks that this stands in, as they are, to be carried over to another file; read when asked for.
    ImageMetadata metadata() const;
    /// How many bytes of the file were read to learn that; all of them for bytes in memory.
    std::size_t bytesRead() const { return bytesRead_; }

    /// True when the file breaks off before its first image ends, as far as its structure tells: nothing is
    /// decoded, and of a whole file little more than its end is read. False says nothing of damage within.
    /// What is read counts as `bytesRead`. HEIF and AVIF files that break off do not open at all.
    bool isIncomplete();

    /// The first image, decoded when its pixels are first touched. For a file this reads all its bytes:
    /// absent when that fails or they changed into something else meanwhile.
    std::optional<CGImage> createImage() const;

  private:
    CGImageSource() = default;

    ImageProperties properties_;
    Data exif_;
    std::size_t bytesRead_ = 0;
    Data data_; // what is in memory
    std::optional<URL> file_;
    std::optional<CGImage> image_;
};

} // namespace pex
