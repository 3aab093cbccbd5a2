#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace pex {

class URL;

/// A regular file that is open for reading; closed with the object.
class OpenFile {
  public:
    /// Opens a file. Absent, with a reason, when it is no regular file or cannot be opened. Does not
    /// block on a pipe.
    static std::optional<OpenFile> toRead(const URL& url);
    ~OpenFile();
    OpenFile(OpenFile&& other) noexcept;
    OpenFile& operator=(OpenFile&&) = delete;

    /// The size that the file had when it was opened.
    std::size_t size() const { return size_; }
    /// Copies bytes from `offset` on and gives their number, which is smaller than asked for at the
    /// end of the file. Absent, with a reason, when reading fails.
    std::optional<std::size_t> read(std::size_t offset, std::span<std::uint8_t> into) const;

  private:
    OpenFile(int descriptor, std::size_t size) : descriptor_(descriptor), size_(size) {}

    int descriptor_;
    std::size_t size_;
};

} // namespace pex
