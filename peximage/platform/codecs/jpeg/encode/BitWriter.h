#pragma once

#include "peximage/platform/codecs/BigEndian.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// Coded bits, without the zero bytes that a file puts after each 0xFF.
struct CodedBits {
    std::vector<std::uint8_t> bytes; // the last one is filled up with zeros
    std::uint64_t bits = 0;
};

/// Writes bits behind each other into memory that has room for eight bytes more than they take.
class BitWriter {
  public:
    explicit BitWriter(std::uint8_t* to) : begin_(to), at_(to) {}

    /// Up to 32 bits. All pending ones are stored each time and the whole bytes among them kept: no branch
    /// that the processor could mispredict.
    void put(std::uint32_t bits, int length) {
        pending_ = pending_ << length | bits;
        count_ += length;
        storeBigEndian(at_, pending_ << 1 << (63 - count_)); // by 64 when there are none
        at_ += count_ >> 3;
        count_ &= 7;
    }

    CodedBits finish() const {
        const auto whole = static_cast<std::size_t>(at_ - begin_);
        const auto rest = static_cast<std::size_t>(count_);
        return {{begin_, at_ + (rest > 0 ? 1 : 0)}, 8 * whole + rest};
    }

  private:
    std::uint8_t *begin_, *at_;
    std::uint64_t pending_ = 0; // of which only the lowest `count_` bits, fewer than 8, are not yet kept
    int count_ = 0;
};

} // namespace pex::jpeg
