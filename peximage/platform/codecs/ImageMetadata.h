#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/codecs/PropertyDictionary.h"
#include "peximage/platform/foundation/Data.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

class URL;

/// Where a field of an EXIF block belongs.
enum class ExifDirectory {
    image, ///< the picture: maker, orientation, resolution, copyright
    exif,  ///< the shot: date, exposure, lens
    gps,   ///< the place
};

/// What a photo says about itself beside its pixels and colour profile, as the blocks of bytes in its file.
/// An application reads it from one file, changes it, and saves it with another picture
/// (`CGImageDestination::Options::metadata`, the savers). Unchanged fields stay byte for byte. A value;
/// copies share the bytes. Any thread.
struct PEX_EXPORT ImageMetadata {
    /// The EXIF block: a TIFF header with its directories, without JPEG's signature before it.
    Data exif = {};
    /// The XMP packet, in UTF-8.
    Data xmp = {};
    /// The second packet of a JPEG whose XMP is too long for one segment.
    Data extendedXmp = {};
    /// Image resources ("8BIM") that describe the picture: IPTC's records and what goes with them.
    Data resources = {};

    /// The metadata of a picture's first image; empty when there is none, or when it is no picture that can
    /// be read. A block longer than `ImageLimits::maxMetadataBytes` is left out. Of a file only what is
    /// needed is read.
    /// @{
    static ImageMetadata of(const URL& file);
    static ImageMetadata of(const Data& bytes);
    /// @}

    /// True when all blocks are empty.
    bool empty() const;
    /// How many bytes all blocks have together.
    std::size_t size() const;

    // Changed copies. A block that is too broken to be changed is left out as a whole.

    /// Without the place: the GPS directory, and the fields of XMP and IPTC for coordinates and names of
    /// places. A maker's own notes may tell the place, too, and are left out.
    ImageMetadata withoutLocation() const;
    /// Corrected for an upright picture of this many pixels: orientation and sizes are set, and what was made
    /// from the old pixels (a thumbnail, an appended film) is no longer mentioned. Encoders do this
    /// themselves.
    ImageMetadata uprighted(int pixelWidth, int pixelHeight) const;
    /// With another resolution, in pixels per inch, if EXIF tells one.
    ImageMetadata withResolution(double x, double y) const;
    /// Only what files of a format can hold. Encoders do this themselves.
    ImageMetadata heldBy(ImageFormat format) const;
    /// Which of the blocks "EXIF", "XMP" and "IPTC" are here and missing in `later`, in whole or in part.
    std::vector<std::string_view> lostIn(const ImageMetadata& later) const;

    /// A copy of a JPEG file with its metadata replaced by this; the picture itself is not touched. The
    /// orientation is not corrected: the caller sees to it that it suits the picture. Absent when the bytes
    /// are no JPEG.
    std::optional<Data> replacedIn(const Data& jpeg) const;

    // Single fields.

    /// An EXIF field by the number of its tag: a text, a number or a list of numbers. Absent when there is
    /// none, or it has another form.
    std::optional<PropertyDictionary::Value> exifField(ExifDirectory directory, std::uint16_t tag) const;
    /// Replaces a field or adds one. Numbers that are not whole are stored as fractions, to a millionth.
    /// False for a value that no field can hold, and when the block is broken.
    bool setExifField(ExifDirectory directory, std::uint16_t tag, const PropertyDictionary::Value& value);
    /// Takes a field out; one that is not there changes nothing.
    void removeExifField(ExifDirectory directory, std::uint16_t tag);

    /// A simple XMP property by its namespace and name, such as ("http://ns.adobe.com/xap/1.0/", "Rating").
    /// Absent when there is none, and without the module "xmp".
    std::optional<std::string> xmpProperty(std::string_view nameSpace, std::string_view name) const;
    /// Replaces the property or adds it; the packet is made if there is none. False when that fails.
    bool setXmpProperty(std::string_view nameSpace, std::string_view name, std::string_view text);

    /// The IPTC records; empty when there are none.
    Data iptc() const;
    /// Puts other records in their place, or adds them; empty bytes remove them.
    void setIptc(const Data& records);
    /// The texts of a field of IPTC record 2 (25: keywords, 105: headline, 120: caption).
    std::vector<std::string> iptcField(std::uint8_t number) const;
    /// Replaces all texts of the field; an empty list removes it.
    void setIptcField(std::uint8_t number, const std::vector<std::string>& texts);

    friend PEX_EXPORT bool operator==(const ImageMetadata& a, const ImageMetadata& b);
};

} // namespace pex
