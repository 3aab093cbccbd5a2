#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace pex::jpeg {

/// Bits in the order of a scan, from bytes without stuffing. Bytes behind the end can be read, too, for as
/// long as an MCU takes.
class Bits {
  public:
    Bits() = default;
    Bits(const std::uint8_t* next, const std::uint8_t* end) : next_(next), end_(end) {}

    static constexpr unsigned ready = 56;
    /// Makes at least so many bits ready; behind the end they mean nothing.
    void refill() {
        // Bits of a byte that does not go in whole are put there again with the next word: the same ones.
        buffer_ |= bigEndianWord(next_) >> count_;
        next_ += (63 - count_) >> 3;
        count_ |= ready;
    }
    /// Left-aligned.
    std::uint64_t peek() const { return buffer_; }
    void drop(unsigned bits) {
        buffer_ <<= bits;
        count_ -= static_cast<int>(bits);
    }
    /// How many bits are left before the end; below zero when more were taken.
    std::int64_t left() const { return (end_ - next_) * 8 + count_; }

  private:
    static std::uint64_t bigEndianWord(const std::uint8_t* bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
    }

    const std::uint8_t *next_ = nullptr, *end_ = nullptr;
    std::uint64_t buffer_ = 0;
    int count_ = 0;
};

} // namespace pex::jpeg
