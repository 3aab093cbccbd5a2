#include "peximage/platform/codecs/ExifOrientation.h"

#include <libexif/exif-data.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

namespace pex {
namespace {

constexpr std::array<std::uint8_t, 6> signature{'E', 'x', 'i', 'f', 0, 0};

/// What libexif looks at; an EXIF block fits a JPEG segment.
constexpr std::size_t maxExifBytes = 0xffff;

struct ExifDataUnref {
    void operator()(ExifData* data) const { exif_data_unref(data); }
};
using ExifDataPointer = std::unique_ptr<ExifData, ExifDataUnref>;

bool isSigned(std::span<const std::uint8_t> exif) {
    return exif.size() >= signature.size() && std::equal(signature.begin(), signature.end(), exif.begin());
}

ExifDataPointer parseExif(std::span<const std::uint8_t> exif) {
    std::vector<std::uint8_t> block;
    if (!isSigned(exif)) block.assign(signature.begin(), signature.end());
    block.insert(block.end(), exif.begin(), exif.begin() + std::min(exif.size(), maxExifBytes));

    ExifDataPointer data(exif_data_new());
    if (!data) return nullptr;
    // What the block does not hold must not be made up.
    exif_data_unset_option(data.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
    exif_data_load_data(data.get(), block.data(), static_cast<unsigned int>(block.size()));
    return data;
}

} // namespace

std::optional<Orientation> exifOrientation(std::span<const std::uint8_t> exif) {
    const ExifDataPointer data = parseExif(exif);
    if (!data) return std::nullopt;
    const ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (!entry || entry->format != EXIF_FORMAT_SHORT || entry->size < 2) return std::nullopt;
    return orientationFromExif(exif_get_short(entry->data, exif_data_get_byte_order(data.get())));
}

} // namespace pex
