#include "peximage/platform/codecs/metadata/TiffStructure.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace pex {
namespace {

constexpr std::array<std::uint8_t, 14> typeSizes{0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};

std::uint32_t numberIn(const std::uint8_t* at, std::size_t bytes, bool bigEndian) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i)
        value = value << 8 | at[bigEndian ? i : bytes - 1 - i];
    return value;
}

} // namespace

void putTiffNumber(std::uint8_t* at, std::uint32_t value, std::size_t bytes, bool bigEndian) {
    for (std::size_t i = 0; i < bytes; ++i)
        at[bigEndian ? bytes - 1 - i : i] = static_cast<std::uint8_t>(value >> (8 * i));
}

const TiffEntry* TiffDirectory::find(std::uint16_t tag) const {
    const auto found = std::ranges::find(entries, tag, &TiffEntry::tag);
    return found != entries.end() ? &*found : nullptr;
}

std::size_t TiffStructure::sizeOf(std::uint16_t type) {
    return type < typeSizes.size() ? typeSizes[type] : 0;
}

std::optional<TiffStructure> TiffStructure::of(std::span<const std::uint8_t> bytes) {
    return open(
        [bytes](std::size_t offset, std::span<std::uint8_t> into) {
            if (offset >= bytes.size()) return std::size_t{0};
            const std::size_t count = std::min(into.size(), bytes.size() - offset);
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), count, into.begin());
            return count;
        },
        bytes.size());
}

std::optional<TiffStructure> TiffStructure::of(const CGDataProvider& bytes) {
    return open(
        [&bytes](std::size_t offset, std::span<std::uint8_t> into) { return bytes.read(offset, into); },
        bytes.size());
}

std::optional<TiffStructure> TiffStructure::open(Read read, std::size_t size) {
    TiffStructure structure;
    structure.read_ = std::move(read);
    structure.size_ = size;
    const std::vector<std::uint8_t> header = structure.bytes(0, headerBytes);
    if (header.size() < headerBytes) return std::nullopt;
    const std::string_view start(reinterpret_cast<const char*>(header.data()), 4);
    structure.bigEndian_ = start == std::string_view("MM\0*", 4);
    if (!structure.bigEndian_ && start != std::string_view("II*\0", 4)) return std::nullopt;
    return structure;
}

std::vector<std::uint8_t> TiffStructure::bytes(std::size_t at, std::size_t count) const {
    if (at >= size_) return {};
    std::vector<std::uint8_t> read(std::min(count, size_ - at));
    read.resize(read_(at, read));
    return read;
}

std::uint32_t TiffStructure::number(std::size_t at, std::size_t bytes) const {
    std::array<std::uint8_t, 4> read{};
    const std::size_t got = read_(at, std::span(read).first(bytes));
    return got == bytes ? numberIn(read.data(), bytes, bigEndian_) : 0;
}

std::optional<std::uint32_t> TiffStructure::number(const TiffEntry& entry) const {
    const bool isNumber =
        entry.type == byte || entry.type == shortInt || entry.type == longInt || entry.type == place;
    if (!isNumber || entry.count == 0 || !holds(entry)) return std::nullopt;
    return number(entry.valueAt, sizeOf(entry.type));
}

std::optional<TiffDirectory> TiffStructure::directory(std::size_t at) const {
    if (at < headerBytes) return std::nullopt;
    if (at < headerBytes || at > size_ || size_ - at < 2) return std::nullopt;
    const std::size_t count = number(at, 2);
    const std::vector<std::uint8_t> table = bytes(at + 2, count * entryBytes);
    if (table.size() < count * entryBytes) return std::nullopt;
    TiffDirectory directory{at, {}, {}};
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t* from = table.data() + i * entryBytes;
        TiffEntry entry;
        entry.tag = static_cast<std::uint16_t>(numberIn(from, 2, bigEndian_));
        entry.type = static_cast<std::uint16_t>(numberIn(from + 2, 2, bigEndian_));
        entry.count = numberIn(from + 4, 4, bigEndian_);
        entry.at = at + 2 + i * entryBytes;
        entry.size = sizeOf(entry.type) * entry.count;
        entry.valueAt = entry.size > 4 ? numberIn(from + 8, 4, bigEndian_) : entry.at + 8;
        directory.entries.push_back(entry);
    }
    if (size_ - directory.end() >= 4) directory.nextAt = directory.end();
    return directory;
}

std::optional<TiffDirectory> TiffStructure::directory(const TiffDirectory& in,
                                                      std::uint16_t pointerTag) const {
    const TiffEntry* pointer = in.find(pointerTag);
    const auto at = pointer != nullptr ? number(*pointer) : std::nullopt;
    return at ? directory(*at) : std::nullopt;
}

} // namespace pex
