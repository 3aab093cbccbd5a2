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

/// An encoded image: what its header says, and its pixels on request. The format is told from the bytes,
/// never from a file name. The EXIF orientation is reported, not applied. An immutable value.
class PEX_EXPORT CGImageSource {
  public:
    /// From bytes in memory: one of the pages, or frames of an animation, counted from 0. Absent when they
    /// are no image of a known format, have no such page, or exceed one of `ImageLimits`.
    static std::optional<CGImageSource> make(const Data& bytes, int page = 0);
    /// From a file. Only its header is read until `createImage`; the file is not kept open. Absent as above,
    /// and when the file cannot be read.
    static std::optional<CGImageSource> make(const URL& file, int page = 0);

    /// Whether this build can read the format.
    static bool reads(ImageFormat format);
    /// The format that a file's first bytes show, even if this build cannot read it. Absent when it is
    /// unknown or the file cannot be read.
    static std::optional<ImageFormat> formatOf(const URL& file);

    /// What the header says of the image.
    const ImageProperties& properties() const { return properties_; }
    /// All that the file says about its first image, by the keys of PropertyDictionary.h.
    PropertyDictionary copyProperties() const;
    /// The same as the blocks of bytes in the file, to be carried over to another one; read on request.
    ImageMetadata metadata() const;
    /// How many bytes of the file were read so far; for bytes in memory, all of them.
    std::size_t bytesRead() const { return bytesRead_; }

    /// True when the file breaks off before its first image ends, as far as its structure tells. Nothing is
    /// decoded, and little more than the end of a whole file is read, so damage inside is not found. HEIF and
    /// AVIF files that break off do not open at all.
    bool isIncomplete();

    /// The image, decoded when its pixels are first touched. Reads the whole file; absent when that
    /// fails, or when the file has become another one meanwhile.
    std::optional<CGImage> createImage() const;

  private:
    CGImageSource() = default;

    ImageProperties properties_;
    int page_ = 0;
    Data exif_;
    std::size_t bytesRead_ = 0;
    Data data_; // what is in memory
    std::optional<URL> file_;
    std::optional<CGImage> image_;
};

} // namespace pex
