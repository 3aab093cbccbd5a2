#include "tests/support/ExifFiles.h"

#include <algorithm>

namespace {

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

Bytes number(std::uint32_t value) {
    Bytes bytes;
    put(bytes, value, 4);
    return bytes;
}

/// A directory that begins at `offset`: entries by tag, and behind them the values that do not fit inside.
Bytes directory(std::vector<ExifField> fields, std::size_t offset) {
    std::ranges::sort(fields, {}, &ExifField::tag);
    Bytes entries, values;
    const std::size_t behind = offset + 2 + 12 * fields.size() + 4;
    put(entries, static_cast<std::uint32_t>(fields.size()), 2);
    for (const ExifField& field : fields) {
        put(entries, field.tag, 2);
        put(entries, field.type, 2);
        put(entries, field.count, 4);
        Bytes inside = field.value;
        if (inside.size() > 4) {
            inside = number(static_cast<std::uint32_t>(behind + values.size()));
            values.insert(values.end(), field.value.begin(), field.value.end());
        }
        inside.resize(4);
        entries.insert(entries.end(), inside.begin(), inside.end());
    }
    put(entries, 0, 4);
    entries.insert(entries.end(), values.begin(), values.end());
    return entries;
}

} // namespace

ExifField exifText(std::uint16_t tag, const std::string& text) {
    Bytes value(text.begin(), text.end());
    value.push_back(0);
    return {tag, 2, static_cast<std::uint32_t>(value.size()), value};
}

ExifField exifShort(std::uint16_t tag, std::uint16_t value) {
    Bytes bytes;
    put(bytes, value, 2);
    return {tag, 3, 1, bytes};
}

ExifField exifFractions(std::uint16_t tag, const std::vector<std::uint32_t>& parts) {
    Bytes value;
    for (const std::uint32_t part : parts)
        put(value, part, 4);
    return {tag, 5, static_cast<std::uint32_t>(parts.size() / 2), value};
}

std::vector<std::uint8_t> exifBlock(std::vector<ExifField> tiff, const std::vector<ExifField>& exif,
                                    const std::vector<ExifField>& gps) {
    constexpr std::uint16_t exifPointer = 0x8769, gpsPointer = 0x8825;
    constexpr std::size_t header = 8;
    tiff.push_back({exifPointer, 4, 1, number(0)});
    tiff.push_back({gpsPointer, 4, 1, number(0)});
    // Sizes do not depend on what the pointers say.
    const std::size_t exifAt = header + directory(tiff, header).size();
    const std::size_t gpsAt = exifAt + directory(exif, exifAt).size();
    tiff[tiff.size() - 2].value = number(static_cast<std::uint32_t>(exifAt));
    tiff[tiff.size() - 1].value = number(static_cast<std::uint32_t>(gpsAt));
    Bytes block{'I', 'I', 42, 0, header, 0, 0, 0};
    for (const Bytes& part : {directory(tiff, header), directory(exif, exifAt), directory(gps, gpsAt)})
        block.insert(block.end(), part.begin(), part.end());
    return block;
}

std::vector<std::uint8_t> withExif(const std::vector<std::uint8_t>& jpeg,
                                   const std::vector<std::uint8_t>& block) {
    Bytes segment{0xFF, 0xE1};
    const std::size_t length = block.size() + 8;
    segment.push_back(static_cast<std::uint8_t>(length >> 8));
    segment.push_back(static_cast<std::uint8_t>(length));
    for (const char c : std::string("Exif\0\0", 6))
        segment.push_back(static_cast<std::uint8_t>(c));
    segment.insert(segment.end(), block.begin(), block.end());
    Bytes file = jpeg;
    file.insert(file.begin() + 2, segment.begin(), segment.end());
    return file;
}
