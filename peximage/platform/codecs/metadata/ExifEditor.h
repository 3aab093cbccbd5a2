#pragma once

#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/metadata/ByteRanges.h"
#include "peximage/platform/codecs/metadata/TiffStructure.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace pex {

/// Changes an EXIF block in place: nothing moves if it can stay, so that references to positions in the
/// block (as in makers' notes) stay valid.
class ExifEditor {
  public:
    /// Absent when the main directory cannot be read: nothing can be made of such a block.
    static std::optional<ExifEditor> open(std::span<const std::uint8_t> block);
    /// For a block with nothing in it yet.
    ExifEditor();

    const std::vector<std::uint8_t>& bytes() const { return bytes_; }
    TiffStructure structure() const { return *TiffStructure::of(bytes_); }

    /// The first entry of a tag; absent when there is none, or its value lies beyond the end.
    std::optional<TiffEntry> find(ExifDirectory directory, std::uint16_t tag) const;

    /// Replaces the number of every such entry, where it is one.
    void correctNumber(ExifDirectory directory, std::uint16_t tag, std::uint32_t value);
    /// Replaces an entry or adds one; `value` is in the block's byte order. What is longer than before goes
    /// to the end of the block.
    void set(ExifDirectory directory, std::uint16_t tag, std::uint16_t type, std::uint32_t count,
             std::span<const std::uint8_t> value);
    /// Removes every such entry; the bytes of their values are blanked.
    void remove(ExifDirectory directory, std::uint16_t tag);

    /// The directory of the embedded thumbnail with the thumbnail.
    void removeThumbnail();
    /// Removes everything that tells or may tell the place: the GPS directory, and fields of an
    /// unknown form such as a maker's notes. Bytes that nothing refers to any more are blanked. False
    /// when the block is so broken that a place might stay readable.
    bool removeLocation();

  private:
    std::optional<TiffDirectory> directory(ExifDirectory which) const;
    std::optional<TiffDirectory> thumbnail() const;
    ByteRanges rangesOf(const TiffDirectory& directory) const;
    ByteRanges rangesOfThumbnail(const TiffDirectory& directory) const;
    ByteRanges rangesInUse() const;

    void put(std::size_t at, std::uint32_t value, std::size_t bytes);
    /// Of `ranges` what is not in use; the block ends before what would be blank at its end.
    void blank(const ByteRanges& ranges);
    /// The ranges of the values of the entries taken out.
    ByteRanges unlink(ExifDirectory which, std::uint16_t tag);
    /// At an even position.
    std::size_t append(std::span<const std::uint8_t> bytes);
    void addDirectory(ExifDirectory which);
    void addEntry(ExifDirectory which, std::uint16_t tag);

    std::vector<std::uint8_t> bytes_;
};

} // namespace pex
