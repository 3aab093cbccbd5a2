#include "peximage/platform/codecs/ImageMetadata.h"

#include "peximage/platform/codecs/ImageCodec.h"
#include "peximage/platform/codecs/jpeg/JpegMetadata.h"
#include "peximage/platform/codecs/metadata/ExifEditor.h"
#include "peximage/platform/codecs/metadata/ExifTags.h"
#include "peximage/platform/codecs/metadata/ImageResources.h"
#include "peximage/platform/codecs/metadata/TiffMetadata.h"
#include "peximage/platform/codecs/metadata/XmpPacket.h"
#include "peximage/platform/foundation/OutOfMemory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

ImageMetadata readFrom(const CGDataProvider& bytes) {
    const ImageLimits limits = ImageLimits::current();
    const ImageCodec* codec = codecForBytes(bytes);
    if (codec == nullptr || codec->metadata == nullptr || bytes.size() > limits.maxSourceBytes) return {};
    ImageMetadata metadata = absentWithoutMemory([&] { return codec->metadata(bytes, limits); });
    constexpr std::string_view signature("Exif\0\0", 6); // which some writers put before the block
    if (metadata.exif.text().starts_with(signature))
        metadata.exif = Data(metadata.exif.text().substr(signature.size()));
    return metadata;
}

/// A changed copy of the block; the block itself if nothing changes, empty if it cannot be changed.
template <class Change>
Data changedExif(const Data& exif, const Change& change) {
    auto editor = exif.empty() ? std::nullopt : ExifEditor::open(exif.bytes());
    if (!editor || !change(*editor)) return {};
    return std::ranges::equal(editor->bytes(), exif.bytes()) ? exif : Data(Bytes(editor->bytes()));
}

Data recordsWithoutLocation(const Data& records) {
    Bytes left;
    for (const IptcField& field : iptcFields(records.bytes())) {
        if (!isIptcLocation(field)) left.insert(left.end(), field.whole.begin(), field.whole.end());
    }
    return Data(std::move(left));
}

bool hasMakerNote(const Data& exif) {
    const auto editor = ExifEditor::open(exif.bytes());
    return editor && editor->find(ExifDirectory::exif, exifTag::makerNote);
}

/// A number as a fraction: whole if it is whole, else in hundredths.
std::array<std::uint32_t, 2> fractionOf(double dpi) {
    const double whole = std::round(dpi);
    const bool isWhole = std::abs(dpi - whole) < 0.005;
    const double parts = isWhole ? whole : std::round(dpi * 100);
    return {static_cast<std::uint32_t>(std::clamp(parts, 1.0, 4e9)), isWhole ? 1U : 100U};
}

void correctResolution(ExifEditor& exif, std::uint16_t tag, double dpi) {
    if (!exif.find(ExifDirectory::image, tag)) return;
    const auto parts = fractionOf(dpi);
    std::array<std::uint8_t, 8> value{};
    const bool bigEndian = exif.structure().isBigEndian();
    putTiffNumber(value.data(), parts[0], 4, bigEndian);
    putTiffNumber(value.data() + 4, parts[1], 4, bigEndian);
    exif.set(ExifDirectory::image, tag, TiffStructure::rational, 1, value);
}

/// Joins the two XMP packets of a JPEG into one, as other formats need it.
ImageMetadata withOnePacket(ImageMetadata metadata) {
    if (metadata.extendedXmp.empty()) return metadata;
    metadata.xmp = xmpPacket::merged(metadata.xmp, metadata.extendedXmp).value_or(metadata.xmp);
    metadata.extendedXmp = {};
    return metadata;
}

ImageMetadata forJpeg(ImageMetadata metadata) {
    if (metadata.exif.size() <= mostExifInJpeg) return metadata;
    metadata.exif = changedExif(metadata.exif, [](ExifEditor& exif) {
        exif.remove(ExifDirectory::exif, exifTag::makerNote);
        return true;
    });
    if (metadata.exif.size() > mostExifInJpeg) metadata.exif = compactExif(metadata.exif.bytes());
    if (metadata.exif.size() > mostExifInJpeg) metadata.exif = {};
    return metadata;
}

} // namespace

ImageMetadata ImageMetadata::of(const URL& file) {
    const auto bytes = CGDataProvider::open(file);
    return bytes ? readFrom(*bytes) : ImageMetadata();
}

ImageMetadata ImageMetadata::of(const Data& bytes) { return readFrom(CGDataProvider(bytes)); }

bool ImageMetadata::empty() const { return size() == 0; }

std::size_t ImageMetadata::size() const {
    return exif.size() + xmp.size() + extendedXmp.size() + resources.size();
}

bool operator==(const ImageMetadata& a, const ImageMetadata& b) {
    return a.exif == b.exif && a.xmp == b.xmp && a.extendedXmp == b.extendedXmp && a.resources == b.resources;
}

ImageMetadata ImageMetadata::withoutLocation() const {
    ImageMetadata result = *this;
    result.exif = changedExif(exif, [](ExifEditor& block) { return block.removeLocation(); });
    if (!xmp.empty()) result.xmp = xmpPacket::withoutLocation(xmp).value_or(Data());
    if (!extendedXmp.empty()) result.extendedXmp = xmpPacket::withoutLocation(extendedXmp).value_or(Data());
    if (result.xmp.empty()) result.extendedXmp = {};
    const Data records = iptc(), left = recordsWithoutLocation(records);
    if (left != records) result.setIptc(left);
    return result;
}

ImageMetadata ImageMetadata::uprighted(int pixelWidth, int pixelHeight) const {
    ImageMetadata result = *this;
    const auto width = static_cast<std::uint32_t>(pixelWidth),
               height = static_cast<std::uint32_t>(pixelHeight);
    result.exif = changedExif(exif, [&](ExifEditor& block) {
        block.correctNumber(ExifDirectory::image, exifTag::orientation, 1);
        block.correctNumber(ExifDirectory::image, exifTag::imageWidth, width);
        block.correctNumber(ExifDirectory::image, exifTag::imageHeight, height);
        block.correctNumber(ExifDirectory::exif, exifTag::pixelWidth, width);
        block.correctNumber(ExifDirectory::exif, exifTag::pixelHeight, height);
        block.removeThumbnail();
        return true;
    });
    if (!xmp.empty()) result.xmp = xmpPacket::uprighted(xmp, pixelWidth, pixelHeight).value_or(Data());
    if (!extendedXmp.empty())
        result.extendedXmp = xmpPacket::uprighted(extendedXmp, pixelWidth, pixelHeight).value_or(Data());
    if (result.xmp.empty()) result.extendedXmp = {};
    return result;
}

ImageMetadata ImageMetadata::withResolution(double x, double y) const {
    ImageMetadata result = *this;
    if (exif.empty() || !(x > 0 && y > 0)) return result;
    constexpr std::uint32_t inches = 2;
    result.exif = changedExif(exif, [&](ExifEditor& block) {
        correctResolution(block, exifTag::xResolution, x);
        correctResolution(block, exifTag::yResolution, y);
        block.correctNumber(ExifDirectory::image, exifTag::resolutionUnit, inches);
        return true;
    });
    return result;
}

ImageMetadata ImageMetadata::heldBy(ImageFormat format) const {
    switch (format) {
    case ImageFormat::jpeg:
        return forJpeg(*this);
    case ImageFormat::png:
    case ImageFormat::tiff:
        return withOnePacket(*this);
    case ImageFormat::webp:
    case ImageFormat::heif:
    case ImageFormat::avif: {
        ImageMetadata result = withOnePacket(*this);
        result.resources = {};
        return result;
    }
    default:
        return {};
    }
}

std::optional<Data> ImageMetadata::replacedIn(const Data& jpeg) const {
    return absentWithoutMemory([&] { return jpegWithMetadata(jpeg, heldBy(ImageFormat::jpeg)); });
}

std::vector<std::string_view> ImageMetadata::lostIn(const ImageMetadata& later) const {
    std::vector<std::string_view> lost;
    if (!exif.empty() && later.exif.empty())
        lost.emplace_back("EXIF");
    else if (hasMakerNote(exif) && !hasMakerNote(later.exif))
        lost.emplace_back("the maker's notes");
    const bool lacksSecond = !extendedXmp.empty() && later.extendedXmp.empty() &&
                             later.xmp.text().find("HasExtendedXMP") != std::string_view::npos;
    if ((!xmp.empty() && later.xmp.empty()) || lacksSecond) lost.emplace_back("XMP");
    if (!iptc().empty() && later.iptc().empty()) lost.emplace_back("IPTC");
    return lost;
}

} // namespace pex
