#pragma once

#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// Puts coded bits behind each other into a file: across the borders of bytes, with a zero byte after each
/// 0xFF, and filled up with ones at the end.
class Stuffer {
  public:
    explicit Stuffer(std::vector<std::uint8_t>& out) : out_(out) {}

    void append(const CodedBits& piece);
    void finish();

  private:
    void putByte(std::uint8_t byte);
    void putEight(std::uint64_t eight);
    void putBits(std::uint32_t bits, int length);
    void flush();

    std::vector<std::uint8_t>& out_;
    /// Room for what a piece becomes at worst, twice its size: small and used again, where twice the whole
    /// file would be fresh memory.
    std::vector<std::uint8_t> room_;
    std::uint8_t* at_ = nullptr;
    /// Of which only the lowest `count_` bits, fewer than 8, are still to be written.
    std::uint64_t pending_ = 0;
    int count_ = 0;
};

} // namespace pex::jpeg
