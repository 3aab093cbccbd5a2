#include "peximage/platform/codecs/ExifBlock.h"

#include <libexif/exif-data.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace pex {
namespace {

constexpr std::array<std::uint8_t, 6> signature{'E', 'x', 'i', 'f', 0, 0};

/// The most bytes that libexif reads; an EXIF block fits a JPEG segment.
constexpr std::size_t maxExifBytes = 0xffff;

/// Longer lists of plain bytes mean nothing to a reader.
constexpr std::size_t mostListed = 16;

bool isSigned(std::span<const std::uint8_t> exif) {
    return exif.size() >= signature.size() && std::equal(signature.begin(), signature.end(), exif.begin());
}

ExifByteOrder orderOf(const ExifEntry& entry) { return exif_data_get_byte_order(entry.parent->parent); }

/// The entry's numbers; none where a fraction has no value.
std::vector<double> numbersOf(const ExifEntry& entry) {
    const std::size_t size = exif_format_get_size(entry.format);
    std::vector<double> numbers;
    if (size == 0) return numbers;
    const std::size_t count = std::min<std::size_t>(entry.components, entry.size / size);
    const ExifByteOrder order = orderOf(entry);
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* at = entry.data + i * size;
        switch (entry.format) {
        case EXIF_FORMAT_BYTE:
        case EXIF_FORMAT_UNDEFINED:
            numbers.push_back(*at);
            break;
        case EXIF_FORMAT_SBYTE:
            numbers.push_back(static_cast<signed char>(*at));
            break;
        case EXIF_FORMAT_SHORT:
            numbers.push_back(exif_get_short(at, order));
            break;
        case EXIF_FORMAT_SSHORT:
            numbers.push_back(exif_get_sshort(at, order));
            break;
        case EXIF_FORMAT_LONG:
            numbers.push_back(exif_get_long(at, order));
            break;
        case EXIF_FORMAT_SLONG:
            numbers.push_back(exif_get_slong(at, order));
            break;
        case EXIF_FORMAT_RATIONAL: {
            const ExifRational r = exif_get_rational(at, order);
            if (r.denominator == 0) return {};
            numbers.push_back(static_cast<double>(r.numerator) / r.denominator);
            break;
        }
        case EXIF_FORMAT_SRATIONAL: {
            const ExifSRational r = exif_get_srational(at, order);
            if (r.denominator == 0) return {};
            numbers.push_back(static_cast<double>(r.numerator) / r.denominator);
            break;
        }
        default:
            return {};
        }
    }
    return numbers;
}

bool isFraction(const ExifEntry& entry) {
    return entry.format == EXIF_FORMAT_RATIONAL || entry.format == EXIF_FORMAT_SRATIONAL;
}

bool isUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80                   ? 1
                                   : lead >= 0xC2 && lead < 0xE0 ? 2
                                   : lead >= 0xE0 && lead < 0xF0 ? 3
                                   : lead >= 0xF0 && lead < 0xF5 ? 4
                                                                 : 0;
        if (length == 0 || i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        }
        i += length;
    }
    return true;
}

/// A text up to its closing zero, without trailing spaces. If it is not UTF-8, it is read as Latin-1,
/// which old cameras write.
std::string textOf(std::string_view bytes) {
    bytes = bytes.substr(0, bytes.find('\0'));
    while (bytes.ends_with(' '))
        bytes.remove_suffix(1);
    if (isUtf8(bytes)) return std::string(bytes);
    std::string text;
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | code >> 6);
            text += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return text;
}

std::string_view bytesOf(const ExifEntry& entry) {
    return {reinterpret_cast<const char*>(entry.data), entry.size};
}

/// A comment names its encoding in its first eight bytes.
std::optional<std::string> commentOf(const ExifEntry& entry) {
    constexpr std::size_t codeBytes = 8;
    const std::string_view bytes = bytesOf(entry);
    const bool readable =
        bytes.starts_with("ASCII") || bytes.starts_with(std::string_view("\0\0\0\0\0\0\0\0", 8));
    if (bytes.size() <= codeBytes || !readable) return std::nullopt;
    return textOf(bytes.substr(codeBytes));
}

std::optional<PropertyDictionary::Value> generalValue(const ExifEntry& entry) {
    if (entry.format == EXIF_FORMAT_ASCII) return textOf(bytesOf(entry));
    if (entry.tag == EXIF_TAG_USER_COMMENT) return commentOf(entry);
    if (entry.tag == EXIF_TAG_EXIF_VERSION || entry.tag == EXIF_TAG_FLASH_PIX_VERSION)
        return textOf(bytesOf(entry));
    std::vector<double> numbers = numbersOf(entry);
    if (numbers.empty() || numbers.size() > mostListed) return std::nullopt;
    if (numbers.size() > 1) return numbers;
    if (isFraction(entry)) return numbers[0];
    return static_cast<std::int64_t>(numbers[0]);
}

/// Degrees, minutes and seconds, the last of which may be missing, as degrees; hours, minutes and seconds as
/// "hh:mm:ss"; a version as "2.3.0.0".
std::optional<PropertyDictionary::Value> gpsValue(std::string_view name, const ExifEntry& entry) {
    const std::vector<double> numbers = numbersOf(entry);
    const bool isPlace = name.ends_with("Latitude") || name.ends_with("Longitude");
    if (isPlace) {
        if (numbers.empty() || numbers.size() > 3) return std::nullopt;
        double degrees = 0, unit = 1;
        for (const double number : numbers) {
            degrees += number / unit;
            unit *= 60;
        }
        return degrees;
    }
    if (name == "TimeStamp") {
        if (numbers.size() != 3) return std::nullopt;
        char text[32];
        std::snprintf(text, sizeof text, "%02d:%02d:%02d", static_cast<int>(std::min(numbers[0], 99.0)),
                      static_cast<int>(std::min(numbers[1], 99.0)),
                      static_cast<int>(std::min(numbers[2], 99.0)));
        return std::string(text);
    }
    if (name == "VersionID" && numbers.size() == 4) {
        std::string text;
        for (const double part : numbers)
            text += (text.empty() ? "" : ".") + std::to_string(static_cast<std::int64_t>(part));
        return text;
    }
    return generalValue(entry);
}

PropertyDictionary directory(ExifContent* content, ExifIfd which) {
    PropertyDictionary dictionary;
    if (content == nullptr) return dictionary;
    for (unsigned i = 0; i < content->count; ++i) {
        const ExifEntry& entry = *content->entries[i];
        const char* known = exif_tag_get_name_in_ifd(entry.tag, which);
        if (known == nullptr || entry.data == nullptr || entry.tag == EXIF_TAG_MAKER_NOTE) continue;
        std::string_view name = known;
        if (which == EXIF_IFD_GPS && name.starts_with("GPS")) name.remove_prefix(3);
        auto value = which == EXIF_IFD_GPS ? gpsValue(name, entry) : generalValue(entry);
        if (value) dictionary.set(name, std::move(*value));
    }
    return dictionary;
}

} // namespace

void ExifBlock::Unref::operator()(_ExifData* data) const { exif_data_unref(data); }

ExifBlock::ExifBlock(std::span<const std::uint8_t> bytes) : data_(exif_data_new()) {
    if (!data_ || bytes.empty()) return;
    std::vector<std::uint8_t> block;
    if (!isSigned(bytes)) block.assign(signature.begin(), signature.end());
    block.insert(block.end(), bytes.begin(), bytes.begin() + std::min(bytes.size(), maxExifBytes));
    // Fields that the block does not hold must not be made up.
    exif_data_unset_option(data_.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
    exif_data_load_data(data_.get(), block.data(), static_cast<unsigned int>(block.size()));
}

bool ExifBlock::isEmpty() const {
    return !data_ || std::ranges::all_of(data_->ifd, [](const ExifContent* ifd) { return ifd->count == 0; });
}

std::optional<Orientation> ExifBlock::orientation() const {
    if (!data_) return std::nullopt;
    const ExifEntry* entry = exif_content_get_entry(data_->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (!entry || entry->format != EXIF_FORMAT_SHORT || entry->size < 2) return std::nullopt;
    return orientationFromExif(exif_get_short(entry->data, exif_data_get_byte_order(data_.get())));
}

std::optional<ExifBlock::Resolution> ExifBlock::resolution() const {
    if (!data_) return std::nullopt;
    const auto number = [&](ExifTag tag) {
        const ExifEntry* entry = exif_content_get_entry(data_->ifd[EXIF_IFD_0], tag);
        const std::vector<double> numbers = entry ? numbersOf(*entry) : std::vector<double>();
        return numbers.size() == 1 ? numbers[0] : 0;
    };
    constexpr double inches = 2, centimetres = 3, perInch = 2.54;
    const double unit = number(EXIF_TAG_RESOLUTION_UNIT); // inches where the block does not say
    const double factor = unit == centimetres ? perInch : unit == inches || unit == 0 ? 1 : 0;
    const Resolution dots{number(EXIF_TAG_X_RESOLUTION) * factor, number(EXIF_TAG_Y_RESOLUTION) * factor};
    if (!(dots.x > 0 && dots.y > 0)) return std::nullopt;
    return dots;
}

PropertyDictionary ExifBlock::properties() const {
    PropertyDictionary properties;
    if (!data_) return properties;
    properties.set(kCGImagePropertyTIFFDictionary, directory(data_->ifd[EXIF_IFD_0], EXIF_IFD_0));
    properties.set(kCGImagePropertyExifDictionary, directory(data_->ifd[EXIF_IFD_EXIF], EXIF_IFD_EXIF));
    properties.set(kCGImagePropertyGPSDictionary, directory(data_->ifd[EXIF_IFD_GPS], EXIF_IFD_GPS));
    return properties;
}

} // namespace pex
