#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace pex {

class URL;

/// An immutable run of bytes; copies share them. Safe to read from many threads.
class PEX_EXPORT Data {
  public:
    Data() = default;
    /// Takes the bytes over.
    explicit Data(std::vector<std::uint8_t> bytes);
    /// A copy of the text's bytes.
    explicit Data(std::string_view text);

    /// The whole file, in the length that it has when it is opened. Absent, with a reason, when it is no
    /// regular file, cannot be read, or holds more than `limit` bytes.
    static std::optional<Data> contentsOf(const URL& url, std::size_t limit = std::size_t{1} << 31);

    /// The first byte; valid as long as any copy. Null when there are none.
    const std::uint8_t* data() const { return bytes_.get(); }
    /// How many bytes there are.
    std::size_t size() const { return size_; }
    /// True when there are none.
    bool empty() const { return size_ == 0; }
    /// All bytes; valid as long as any copy.
    std::span<const std::uint8_t> bytes() const { return {data(), size()}; }
    /// The bytes as text, whatever they are.
    std::string_view text() const;

    /// How a file is written. `atomically` writes a temporary file beside it and renames that when it is
    /// complete: the address always names the old bytes or the new ones, never a part. `inPlace` writes the
    /// file itself, and deletes it when that fails.
    enum class Writing { inPlace, atomically };
    /// Writes the bytes to a file. False when it cannot be written.
    bool write(const URL& url, Writing writing) const;

    PEX_EXPORT friend bool operator==(const Data& a, const Data& b);

  private:
    Data(std::shared_ptr<const std::uint8_t> bytes, std::size_t size)
        : bytes_(std::move(bytes)), size_(size) {}

    std::shared_ptr<const std::uint8_t> bytes_;
    std::size_t size_ = 0;
};

} // namespace pex
