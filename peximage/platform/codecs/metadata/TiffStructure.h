#pragma once

#include "peximage/platform/codecs/CGDataProvider.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace pex {

/// An entry of a TIFF directory. Its value stands in the entry itself where it has up to four bytes.
struct TiffEntry {
    std::uint16_t tag = 0, type = 0;
    std::uint32_t count = 0;
    std::size_t at = 0;      // of its twelve bytes
    std::size_t valueAt = 0; // of its value
    std::size_t size = 0;    // of its value; 0 for a type that is not known

    std::size_t valueEnd() const { return valueAt + size; }
};

/// A directory's table: the number of entries, the entries, and where the next directory begins.
struct TiffDirectory {
    std::size_t at = 0;
    std::vector<TiffEntry> entries;
    std::optional<std::size_t> nextAt; // of the number that tells; absent where the bytes end before it

    std::size_t end() const { return at + 2 + 12 * entries.size(); }
    const TiffEntry* find(std::uint16_t tag) const;
};

/// The directories of a TIFF structure (a TIFF file with offsets of 32 bits, an EXIF block), read from where
/// they stand. What reaches behind the end is not there. It refers to its bytes and must not outlive them.
class TiffStructure {
  public:
    /// The numbers of types that stand in files.
    enum Type : std::uint16_t {
        byte = 1,
        ascii = 2,
        shortInt = 3,
        longInt = 4,
        rational = 5,
        undefined = 7,
        place = 13 // of a directory; most writers take `longInt` for it
    };
    static constexpr std::size_t headerBytes = 8, entryBytes = 12;

    static std::optional<TiffStructure> of(std::span<const std::uint8_t> bytes);
    static std::optional<TiffStructure> of(const CGDataProvider& bytes);

    /// Bytes of one number; 0 for a type that the standard does not have.
    static std::size_t sizeOf(std::uint16_t type);

    bool isBigEndian() const { return bigEndian_; }
    std::size_t size() const { return size_; }

    /// A number of 2 or 4 bytes; 0 behind the end.
    std::uint32_t number(std::size_t at, std::size_t bytes) const;
    /// The first number of a value of type BYTE, SHORT, LONG or IFD.
    std::optional<std::uint32_t> number(const TiffEntry& entry) const;

    std::optional<TiffDirectory> mainDirectory() const { return directory(number(4, 4)); }
    std::optional<TiffDirectory> directory(std::size_t at) const;
    /// The one that an entry of another points to.
    std::optional<TiffDirectory> directory(const TiffDirectory& in, std::uint16_t pointerTag) const;

    bool holds(const TiffEntry& entry) const { return entry.valueEnd() <= size_; }
    std::vector<std::uint8_t> bytes(std::size_t at, std::size_t count) const;

  private:
    using Read = std::function<std::size_t(std::size_t, std::span<std::uint8_t>)>;

    static std::optional<TiffStructure> open(Read read, std::size_t size);

    Read read_;
    std::size_t size_ = 0;
    bool bigEndian_ = false;
};

/// The number's bytes in a TIFF's order.
void putTiffNumber(std::uint8_t* at, std::uint32_t value, std::size_t bytes, bool bigEndian);

} // namespace pex
