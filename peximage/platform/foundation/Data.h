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
    explicit Data(std::vector<std::uint8_t> bytes);
    explicit Data(std::string_view text);

    /// The whole file, as long as it is when it is opened. Absent when it is no regular file, cannot be read,
    /// or holds more than `limit` bytes; the reason is given.
    static std::optional<Data> contentsOf(const URL& url, std::size_t limit = std::size_t{1} << 31);

    const std::uint8_t* data() const { return bytes_.get(); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::span<const std::uint8_t> bytes() const { return {data(), size()}; }
    std::string_view text() const;

    /// Writes the bytes to a file. With `atomically`, through a temporary file beside it that is renamed when
    /// all is written: the address then names the old bytes or the new ones, never a part. Without, in place;
    /// a failed write removes the partial file. False when it cannot be written.
    enum class Writing { inPlace, atomically };
    bool write(const URL& url, Writing writing) const;

    PEX_EXPORT friend bool operator==(const Data& a, const Data& b);

  private:
    Data(std::shared_ptr<const std::uint8_t> bytes, std::size_t size)
        : bytes_(std::move(bytes)), size_(size) {}

    std::shared_ptr<const std::uint8_t> bytes_;
    std::size_t size_ = 0;
};

} // namespace pex
