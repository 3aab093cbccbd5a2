#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

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

/// The bits of a scan: stuffed zeros taken out, up to the next marker.
class JpegBits {
  public:
    void begin(const std::uint8_t* next, const std::uint8_t* end);
    /// Makes at least 32 bits ready, or all that are left before a marker.
    void refill() {
        if (count_ >= 32) [[likely]]
            return;
        const std::uint64_t word = end_ - next_ >= 8 ? bigEndianWord(next_) : ~std::uint64_t{0};
        if (hasMarkerByte(word)) {
            *this = refilledByteByByte(*this);
            return;
        }
        // Bits of a byte that has not gone in whole are put there again with the next word: the same ones.
        buffer_ |= word >> count_;
        next_ += (63 - count_) >> 3;
        count_ |= 56;
    }
    /// Left-aligned; zeros behind the last one.
    std::uint64_t peek() const { return buffer_; }
    int count() const { return count_; }
    void drop(unsigned bits) {
        buffer_ <<= bits;
        count_ -= static_cast<int>(bits);
    }
    /// Goes on behind the restart marker of this number; false when it is not what comes next.
    bool passRestart(int number);

  private:
    static std::uint64_t bigEndianWord(const std::uint8_t* bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
    }
    static bool hasMarkerByte(std::uint64_t word) {
        const std::uint64_t inverse = ~word; // a byte FF becomes zero
        return ((inverse - 0x0101010101010101) & ~inverse & 0x8080808080808080) != 0;
    }
    /// By value, so that the bits can stay in registers.
    static JpegBits refilledByteByByte(JpegBits bits);

    const std::uint8_t *next_ = nullptr, *end_ = nullptr;
    std::uint64_t buffer_ = 0;
    int count_ = 0; // below zero: more was taken than there is
};

/// The codes of one baseline scan, decoded MCU by MCU from bytes in memory.
class JpegScanCodes {
  public:
    /// Of a decompressor that has just been started; the bytes behind its source must outlive the codes.
    explicit JpegScanCodes(j_decompress_ptr info);

    /// Whether they can be decoded here: Huffman codes of one scan that holds all components.
    static bool areUsual(j_decompress_ptr info);

    int blocksOfMcu() const { return blockCount_; }

    /// A coefficient that is not zero: its place in natural order in the upper half, its value, not yet
    /// dequantised, in the lower.
    using Coefficient = std::uint32_t;
    /// The most that an MCU takes when it is written.
    std::size_t longestMcu() const { return static_cast<std::size_t>(blockCount_) * (1 + DCTSIZE2); }
    /// Writes the next so many MCUs: for each block the number of coefficients that follow, and these. Blocks
    /// of components that are not wanted, and those that are decoded at an eighth, have no more than the
    /// first. False at the first sign of damage, and from then on.
    bool writeMcus(std::int64_t count, Coefficient* to);

  private:
    struct Block {
        std::size_t dcTable, acTable, component;
        bool wantsAll;
    };

    /// What changes from MCU to MCU; worked on in a copy, since other threads read what lies beside it.
    struct State {
        JpegBits bits;
        std::array<int, MAX_COMPS_IN_SCAN> lastDc{};
        unsigned restartsToGo = 0;
        int nextRestart = 0;
    };

    bool passRestart(State& state) const;
    bool decodeDc(JpegBits& bits, const Block& block, int& last) const;
    Coefficient* writeMcu(State& state, Coefficient* to) const;

    std::array<JpegHuffmanTable, NUM_HUFF_TBLS> dcTables_, acTables_;
    std::array<Block, D_MAX_BLOCKS_IN_MCU> blocks_{};
    int blockCount_ = 0;
    unsigned restartInterval_ = 0;
    State state_;
    bool isGood_ = true;
};

} // namespace pex
