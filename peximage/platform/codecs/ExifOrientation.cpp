#include "peximage/platform/codecs/ExifOrientation.h"

#include <libexif/exif-data.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace pex {
namespace {

constexpr std::uint8_t exifName[] = {'E', 'x', 'i', 'f', 0, 0};

struct ExifDeleter {
    void operator()(ExifData* data) const { exif_data_unref(data); }
};

std::unique_ptr<ExifData, ExifDeleter> load(std::span<const std::uint8_t> exif) {
    std::vector<std::uint8_t> block;
    if (!std::equal(std::begin(exifName), std::end(exifName), exif.begin(),
                    exif.begin() + std::min<std::ptrdiff_t>(std::ssize(exif), 6)))
        block.assign(std::begin(exifName), std::end(exifName));
    block.insert(block.end(), exif.begin(), exif.end());
    return std::unique_ptr<ExifData, ExifDeleter>(
        exif_data_new_from_data(block.data(), static_cast<unsigned>(block.size())));
}

} // namespace

std::optional<Orientation> exifOrientation(std::span<const std::uint8_t> exif) {
    if (exif.empty()) return std::nullopt;
    const auto data = load(exif);
    if (!data) return std::nullopt;
    const ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (!entry || entry->format != EXIF_FORMAT_SHORT || entry->components < 1 || entry->size < 2)
        return std::nullopt;
    return orientationFromExif(exif_get_short(entry->data, exif_data_get_byte_order(data.get())));
}

} // namespace pex
