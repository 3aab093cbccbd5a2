#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// clang-format off: it needs what stands before it
#include <jpeglib.h>
// clang-format on

namespace pex {

/// One table of Huffman codes: the next bits of a scan look up the code that they begin with.
class JpegHuffmanTable {
  public:
    /// A code says how many coefficients are zero and of how many bits the next one's number is, which
    /// follow. In one word, so that the bits of both, which all that follows waits for, take no unpacking.
    class Entry {
      public:
        constexpr Entry() = default;
        constexpr Entry(unsigned symbol, unsigned codeBits)
            : word_((codeBits + (symbol & 15)) | codeBits << 8 | (symbol >> 4) << 16 | (symbol & 15) << 24) {}

        /// The bits of both; 0 where the bits begin a longer code, or none.
        constexpr unsigned total() const { return word_ & 63; }
        constexpr unsigned codeBits() const { return word_ >> 8 & 63; }
        constexpr unsigned run() const { return word_ >> 16 & 15; }
        constexpr unsigned size() const { return word_ >> 24; }
        constexpr bool isCode() const { return word_ != 0; }

      private:
        std::uint32_t word_ = 0;
    };
    static constexpr int lookupBits = 10;

    JpegHuffmanTable() = default;
    /// From a table that the codec library has found good.
    explicit JpegHuffmanTable(const JHUFF_TBL& table);

    /// Bits are left-aligned.
    Entry lookup(std::uint64_t bits) const {
        const Entry entry = entries_[bits >> (64 - lookupBits)];
        return entry.isCode() ? entry : longCode(bits);
    }

  private:
    void addCode(unsigned code, int length, unsigned symbol);
    Entry longCode(std::uint64_t bits) const;

    std::array<Entry, 1 << lookupBits> entries_{};
    std::array<std::uint8_t, 256> symbols_{};
    std::array<std::int32_t, 17> lastCode_{}; // of each length; -1 where there is none
    std::array<std::int32_t, 17> symbolOffset_{};
};

} // namespace pex
