#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace pex {

/// Memory for pixels, shared by whoever looks at them and given back with the last owner. Large buffers are
/// aligned to 2 MB and use huge pages where the system offers them, and a few freed ones are kept for the
/// next picture of about the same size: touching fresh memory costs more than most work done in it. The bytes
/// are not zeroed. Making and dropping buffers is safe from any thread.
class PEX_EXPORT PixelBuffer {
  public:
    PixelBuffer() = default;

    /// An empty buffer, with the reason, when the memory cannot be had (check with `operator bool`).
    static PixelBuffer make(std::size_t bytes);
    static PixelBuffer makeZeroed(std::size_t bytes);

    /// Memory that somebody else owns and that is only read: `isUnique` is never true of it, so nobody writes
    /// it. `release` is called exactly once, by the thread that drops the last buffer over it, or at once
    /// where memory runs out and the buffer is empty; it must not throw.
    static PixelBuffer adopt(const std::uint8_t* bytes, std::size_t size, std::function<void()> release);

    /// A piece of this buffer that keeps the whole alive; the caller has checked that it lies inside.
    PixelBuffer piece(std::size_t offset, std::size_t bytes) const {
        return {std::shared_ptr<std::uint8_t>(bytes_, data() + offset), bytes, isForeign_};
    }

    std::uint8_t* data() const { return bytes_.get(); }
    std::size_t size() const { return size_; }
    explicit operator bool() const { return bytes_ != nullptr; }
    /// True while no other buffer object shares the bytes: who holds it may then write them, also when
    /// another thread has just dropped the last other one.
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

/// The pool of freed pixel memory behind `PixelBuffer`. What it keeps goes back to the system when the
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
