#pragma once

#include "peximage/platform/codecs/jpeg/decode/Bits.h"
#include "peximage/platform/codecs/jpeg/decode/CodecLibrary.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::jpeg {

/// One table of Huffman codes: the next bits of a scan look up the code that they begin with, and the number
/// that follows it.
class HuffmanDecoder {
  public:
    /// What a code and its number say, in one word, so that the bits of both, which all that follows waits
    /// for, take no unpacking.
    class Entry {
      public:
        constexpr Entry() = default;
        constexpr Entry(unsigned bits, unsigned step, int value)
            : word_(bits | step << 8 | static_cast<unsigned>(value) << 16) {}

        /// The bits of both.
        constexpr unsigned bits() const { return word_ & 63; }
        /// How far the coefficient is from the one before in the order of the file, 1 to 16; or one of those
        /// below, which lead out of any block.
        constexpr unsigned step() const { return word_ >> 8 & 255; }
        /// The number's lower 16 bits.
        constexpr unsigned value() const { return word_ >> 16; }

      private:
        std::uint32_t word_ = 0;
    };
    /// No coefficient: all that are left are zero. In a progressive scan the value tells how many bits follow
    /// with the number of blocks of which that is true.
    static constexpr unsigned endOfBlock = 64;
    static constexpr unsigned noCode = 128;
    static constexpr unsigned tooLong = 192; // a code and a number that `lookup` does not know; no bits

    /// `lookup` knows those that take no more bits.
    static constexpr unsigned lookupBits = 11;
    /// The most bits that any takes.
    static constexpr unsigned mostBits = 27;

    /// What a table is for: the first coefficients of blocks, the others, or those of a scan that refines
    /// what is known of them.
    enum class Use { first, others, refinement };
    /// Whether the codes are possible, and say nothing that pictures of eight bits a sample do not have.
    static bool isUsual(const JHUFF_TBL& table, Use use);

    HuffmanDecoder() = default;
    /// From a table that is usual.
    explicit HuffmanDecoder(const JHUFF_TBL& table);

    /// Bits are left-aligned.
    Entry lookup(std::uint64_t bits) const { return entries_[bits >> (64 - lookupBits)]; }
    /// The same for a code and a number that are too long for `lookup`; `mostBits` are needed.
    Entry decode(std::uint64_t bits) const;
    /// Takes the next code with its number from bits that are ready.
    Entry take(Bits& bits) const {
        Entry code = lookup(bits.peek());
        if (code.step() == tooLong) code = decode(bits.peek());
        bits.drop(code.bits());
        return code;
    }

  private:
    void addCode(std::uint64_t code, unsigned codeBits, unsigned symbol);

    std::array<Entry, 1 << lookupBits> entries_{};
    std::array<std::uint8_t, 256> symbols_{};
    /// For the codes of each length: where the shorter ones and these end, left-aligned, and what leads from
    /// a code to its symbol.
    std::array<std::uint64_t, 17> endOfCodes_{};
    std::array<std::int32_t, 17> symbolOffset_{};
};

} // namespace pex::jpeg
