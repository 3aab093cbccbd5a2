#include "peximage/platform/codecs/metadata/ImageResources.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace pex {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t fieldMark = 0x1C;

std::size_t numberAt(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t count) {
    std::size_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value = value << 8 | bytes[at + i];
    return value;
}

void put(Bytes& out, std::size_t value, int count) {
    for (int i = count - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

} // namespace

std::vector<ImageResource> imageResources(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t least = 12; // mark, number, an empty name, length
    std::vector<ImageResource> all;
    while (bytes.size() >= least && std::memcmp(bytes.data(), "8BIM", 4) == 0) {
        const std::size_t name = 6, afterName = name + (1 + bytes[name] + 1) / 2 * 2;
        if (bytes.size() < afterName + 4) break;
        const std::size_t start = afterName + 4, count = numberAt(bytes, afterName, 4);
        if (count > bytes.size() - start) break;
        const std::size_t end = std::min(start + count + count % 2, bytes.size());
        all.push_back({static_cast<std::uint16_t>(numberAt(bytes, 4, 2)), bytes.first(end),
                       bytes.subspan(start, count)});
        bytes = bytes.subspan(end);
    }
    return all;
}

Bytes describingResources(std::span<const std::uint8_t> bytes) {
    constexpr std::array kept{ImageResource::iptc, ImageResource::iptcDigest, ImageResource::copyrightMark,
                              ImageResource::address};
    Bytes result;
    for (const ImageResource& resource : imageResources(bytes)) {
        if (std::ranges::find(kept, resource.id) == kept.end()) continue;
        result.insert(result.end(), resource.whole.begin(), resource.whole.end());
        result.resize(result.size() + result.size() % 2);
    }
    return result;
}

Bytes imageResource(std::uint16_t id, std::span<const std::uint8_t> content) {
    Bytes resource{'8', 'B', 'I', 'M'};
    put(resource, id, 2);
    put(resource, 0, 2); // no name
    put(resource, content.size(), 4);
    resource.insert(resource.end(), content.begin(), content.end());
    resource.resize(resource.size() + content.size() % 2);
    return resource;
}

std::vector<IptcField> iptcFields(std::span<const std::uint8_t> records) {
    constexpr std::size_t headBytes = 5, longForm = 0x8000, mostLengthBytes = 4;
    std::vector<IptcField> all;
    while (records.size() >= headBytes && records[0] == fieldMark) {
        std::size_t start = headBytes, count = numberAt(records, 3, 2);
        if (count >= longForm) { // the length stands behind, in so many bytes
            const std::size_t bytes = count - longForm;
            if (bytes > mostLengthBytes || bytes > records.size() - start) break;
            count = numberAt(records, start, bytes);
            start += bytes;
        }
        if (count > records.size() - start) break;
        all.push_back({records[1], records[2], records.first(start + count), records.subspan(start, count)});
        records = records.subspan(start + count);
    }
    return all;
}

Bytes iptcField(std::uint8_t record, std::uint8_t number, std::span<const std::uint8_t> content) {
    constexpr std::size_t mostShort = 0x7FFF;
    Bytes field{fieldMark, record, number};
    put(field, content.size() <= mostShort ? content.size() : 0x8004, 2);
    if (content.size() > mostShort) put(field, content.size(), 4);
    field.insert(field.end(), content.begin(), content.end());
    return field;
}

bool isIptcLocation(const IptcField& field) {
    // Location code and name of the content; city, its part, state, country's code and name.
    constexpr std::array<std::uint8_t, 7> places{26, 27, 90, 92, 95, 100, 101};
    return field.record == 2 && std::ranges::find(places, field.number) != places.end();
}

} // namespace pex
