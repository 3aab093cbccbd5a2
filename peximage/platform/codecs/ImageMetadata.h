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

/// What a photo says about itself beside its pixels and their colour profile, as the bytes that its file has
/// for it. An application reads it from one file, changes what it likes, and gives it to whoever writes
/// another (`CGImageDestination::Options::metadata`, the savers). What is not changed stays byte for byte. A
/// value; copies share the bytes. Any thread.
struct PEX_EXPORT ImageMetadata {
    /// The EXIF block: a TIFF header with its directories, without JPEG's signature before it.
    Data exif = {};
    /// The XMP packet, in UTF-8.
    Data xmp = {};
    /// The second packet of a JPEG whose XMP is too long for one segment.
    Data extendedXmp = {};
    /// Image resources ("8BIM") that describe the picture: IPTC's records and what goes with them.
    Data resources = {};

    /// Of an encoded picture's first image; empty when it has none, or is no picture that can be read. What
    /// is longer than `ImageLimits::maxMetadataBytes` is left out. Of a file no more is read than that takes.
    static ImageMetadata of(const URL& file);
    static ImageMetadata of(const Data& bytes);

    bool empty() const;
    /// Bytes of all blocks.
    std::size_t size() const;

    // Parts taken out. A block that is too broken for it is left out as a whole.

    /// Without what tells the place: the GPS directory, XMP's and IPTC's fields of coordinates and of places
    /// by name. Notes in a maker's own form may tell it, too, and go with it.
    ImageMetadata withoutLocation() const;
    /// As it belongs to a picture of these pixels: the orientation is upright, the sizes inside are the
    /// picture's, and what was made from the old pixels (a thumbnail, an appended film) is not claimed any
    /// more. Encoders do this themselves.
    ImageMetadata uprighted(int pixelWidth, int pixelHeight) const;
    /// With the resolution, in pixels an inch, where EXIF tells one.
    ImageMetadata withResolution(double x, double y) const;
    /// As far as files of the format can hold it; encoders do this themselves.
    ImageMetadata heldBy(ImageFormat format) const;
    /// Of the blocks "EXIF", "XMP" and "IPTC" those that this has and `later` lacks, in whole or in part.
    std::vector<std::string_view> lostIn(const ImageMetadata& later) const;

    /// A JPEG file with this in the place of its own metadata, as it is; the picture stays untouched. Absent
    /// for what is no JPEG. It is for who asks for it that the orientation stays the picture's.
    std::optional<Data> replacedIn(const Data& jpeg) const;

    // Single fields.

    /// By the number of its tag: a text, a number or a list of them. Absent when there is none, or it has no
    /// such form.
    std::optional<PropertyDictionary::Value> exifField(ExifDirectory directory, std::uint16_t tag) const;
    /// Replaces a field or adds one: texts as text, whole numbers as such, others as fractions to a
    /// millionth. False for what no field can hold, and when the block is broken.
    bool setExifField(ExifDirectory directory, std::uint16_t tag, const PropertyDictionary::Value& value);
    void removeExifField(ExifDirectory directory, std::uint16_t tag);

    /// A simple property of the packet by its namespace and name: ("http://ns.adobe.com/xap/1.0/", "Rating").
    /// Absent without the module "xmp", too.
    std::optional<std::string> xmpProperty(std::string_view nameSpace, std::string_view name) const;
    /// Replaces the property, or adds it to the packet, which is made where there is none.
    bool setXmpProperty(std::string_view nameSpace, std::string_view name, std::string_view text);

    /// IPTC's records.
    Data iptc() const;
    void setIptc(const Data& records);
    /// The texts of a field of record 2 (25: keywords, 105: headline, 120: caption), as they stand.
    std::vector<std::string> iptcField(std::uint8_t number) const;
    /// In the place of those that there are; none removes the field.
    void setIptcField(std::uint8_t number, const std::vector<std::string>& texts);

    friend PEX_EXPORT bool operator==(const ImageMetadata& a, const ImageMetadata& b);
};

} // namespace pex
