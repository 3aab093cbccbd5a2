#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace pex {

/// "8BIM" resources, as image editors store them one behind the other: a number, a name, bytes. Of broken
/// ones there are those before the damage.
struct ImageResource {
    static constexpr std::uint16_t copyrightMark = 0x040A, address = 0x040B, iptc = 0x0404,
                                   iptcDigest = 0x0425;

    std::uint16_t id = 0;
    std::span<const std::uint8_t> whole, content;
};
std::vector<ImageResource> imageResources(std::span<const std::uint8_t> bytes);

/// Those that describe the picture: IPTC's records and their digest, the copyright mark, the address. Others
/// are of the editor's own use, or repeat what stands elsewhere.
std::vector<std::uint8_t> describingResources(std::span<const std::uint8_t> bytes);

/// A resource of a number, without name.
std::vector<std::uint8_t> imageResource(std::uint16_t id, std::span<const std::uint8_t> content);

/// A field of IPTC's records.
struct IptcField {
    std::uint8_t record = 0, number = 0;
    std::span<const std::uint8_t> whole, content;
};
/// Up to the first damage.
std::vector<IptcField> iptcFields(std::span<const std::uint8_t> records);
std::vector<std::uint8_t> iptcField(std::uint8_t record, std::uint8_t number,
                                    std::span<const std::uint8_t> content);

/// Whether a field names a place.
bool isIptcLocation(const IptcField& field);

} // namespace pex
