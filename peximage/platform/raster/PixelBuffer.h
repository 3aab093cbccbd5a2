#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace pex {

/// Memory for pixels, shared by its copies and freed with the last one. Large buffers are aligned to 2 MB and
/// use huge pages where the system offers them. A few freed ones are kept for the next picture of about the
/// same size, since touching fresh memory costs more than most work done in it. Buffers may be made and
/// dropped on any thread.
class PEX_EXPORT PixelBuffer {
  public:
    PixelBuffer() = default;

    /// A buffer of so many bytes, which are not zeroed. Empty, with a reason, when the memory cannot be had
    /// (check with `operator bool`).
    static PixelBuffer make(std::size_t bytes);
    /// The same with all bytes 0.
    static PixelBuffer makeZeroed(std::size_t bytes);

    /// A buffer over memory that somebody else owns. It is only read: `isUnique` is never true of it.
    /// `release` is called exactly once, by the thread that drops the last copy, or at once when memory runs
    /// out and the result is empty. It must not throw.
    static PixelBuffer adopt(const std::uint8_t* bytes, std::size_t size, std::function<void()> release);

    /// A piece of this buffer that keeps the whole alive; the caller has checked that it lies inside.
    PixelBuffer piece(std::size_t offset, std::size_t bytes) const {
        return {std::shared_ptr<std::uint8_t>(bytes_, data() + offset), bytes, isForeign_};
    }

    /// The first byte; null when the buffer is empty.
    std::uint8_t* data() const { return bytes_.get(); }
    /// How many bytes there are.
    std::size_t size() const { return size_; }
    /// False for an empty buffer.
    explicit operator bool() const { return bytes_ != nullptr; }
    /// True while no other buffer object shares the bytes: the holder may then write them, even if another
    /// thread has just dropped the last copy.
    bool isUnique() const;

  private:
    /// Throws `std::bad_alloc`.
    static PixelBuffer tryToMake(std::size_t bytes);
    PixelBuffer(std::shared_ptr<std::uint8_t> bytes, std::size_t size, bool isForeign = false)
        : bytes_(std::move(bytes)), size_(size), isForeign_(isForeign) {}

    std::shared_ptr<std::uint8_t> bytes_;
    std::size_t size_ = 0;
    bool isForeign_ = false; // somebody else's, only to be read
};

/// The pool of freed pixel memory behind `PixelBuffer`. It gives its memory back to the system when the
/// library's worker threads have had nothing to do for two seconds.
namespace pixelPool {

/// At most this many bytes of freed buffers are kept for reuse; 0 keeps none. Default 64 MB.
PEX_EXPORT void setBound(std::size_t bytes);
/// Bytes kept for reuse just now.
PEX_EXPORT std::size_t keptBytes();
/// Gives everything that is kept back to the system at once.
PEX_EXPORT void drain();

} // namespace pixelPool

} // namespace pex
