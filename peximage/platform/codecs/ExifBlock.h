#pragma once

#include "peximage/platform/codecs/PropertyDictionary.h"
#include "peximage/platform/raster/Orientation.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

struct _ExifData; // NOLINT: libexif's own name

namespace pex {

/// A parsed EXIF block: a TIFF header with its directories, with or without the "Exif" signature of JPEG
/// before it. A broken block gives the fields that can be read.
class ExifBlock {
  public:
    explicit ExifBlock(std::span<const std::uint8_t> bytes);

    /// Whether no field could be read.
    bool isEmpty() const;
    /// Absent when the block does not say.
    std::optional<Orientation> orientation() const;
    struct Resolution {
        double x, y; // pixels an inch
    };
    std::optional<Resolution> resolution() const;
    /// The sub-dictionaries `kCGImagePropertyTIFFDictionary`, `…ExifDictionary` and `…GPSDictionary` as far
    /// as there are any. Fractions are numbers; latitudes and longitudes are degrees without sign, as the
    /// block has them. What has no readable form (a maker's own notes, a thumbnail) is left out.
    PropertyDictionary properties() const;

  private:
    struct Unref {
        void operator()(_ExifData* data) const;
    };
    std::unique_ptr<_ExifData, Unref> data_;
};

} // namespace pex
