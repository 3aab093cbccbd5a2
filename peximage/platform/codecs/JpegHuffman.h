#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

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

/// Bits in the order of a scan, from bytes without stuffing. Bytes behind the end can be read, too, for as
/// long as an MCU takes.
class JpegBits {
  public:
    JpegBits() = default;
    JpegBits(const std::uint8_t* next, const std::uint8_t* end) : next_(next), end_(end) {}

    /// Makes at least 56 bits ready; behind the end they mean nothing.
    void refill() {
        // Bits of a byte that does not go in whole are put there again with the next word: the same ones.
        buffer_ |= bigEndianWord(next_) >> count_;
        next_ += (63 - count_) >> 3;
        count_ |= 56;
    }
    /// Left-aligned.
    std::uint64_t peek() const { return buffer_; }
    void drop(unsigned bits) {
        buffer_ <<= bits;
        count_ -= static_cast<int>(bits);
    }
    /// How many bits are left before the end; below zero when more were taken.
    std::int64_t left() const { return (end_ - next_) * 8 + count_; }

    const std::uint8_t* next() const { return next_; }
    const std::uint8_t* end() const { return end_; }
    /// Goes on elsewhere, where the same bytes stand.
    void moveTo(const std::uint8_t* next, const std::uint8_t* end) {
        next_ = next;
        end_ = end;
    }

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

/// Takes the stuffing out of a scan, a window of it at a time.
class JpegScanBytes {
  public:
    /// The bytes must outlive this object.
    JpegScanBytes(const std::uint8_t* next, const std::uint8_t* end);

    /// Sees to it that so many bytes lie ready as an MCU can take, or all up to the next marker.
    void prepare(JpegBits& bits) {
        if (bits.end() - bits.next() < longestMcu && !atMarker_) fill(bits);
    }
    /// Begins anew behind the restart marker of this number; false when it is not what comes next.
    bool passRestart(JpegBits& bits, int number);

  private:
    static constexpr std::ptrdiff_t longestMcu = 4096; // ten blocks of codes with 26 bits
    static constexpr std::size_t windowSize = 32768;
    /// A damaged MCU may lead as far behind the end.
    static constexpr std::size_t slack = longestMcu + sizeof(std::uint64_t);

    void fill(JpegBits& bits);

    const std::uint8_t *next_, *end_;
    bool atMarker_ = false;
    std::vector<std::uint8_t> window_;
};

/// The codes of one baseline scan, decoded MCU by MCU from bytes in memory.
class JpegScanCodes {
  public:
    /// Of a decompressor that has just been started; the bytes behind its source must outlive the codes.
    explicit JpegScanCodes(j_decompress_ptr info);

    /// Whether they can be decoded here: Huffman codes of one scan that holds all components, for numbers
    /// that pictures of eight bits have.
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

    bool passRestart(State& state);
    bool decodeDc(JpegBits& bits, const Block& block, int& last) const;
    Coefficient* writeMcu(State& state, Coefficient* to);

    std::array<JpegHuffmanTable, NUM_HUFF_TBLS> dcTables_, acTables_;
    std::array<Block, D_MAX_BLOCKS_IN_MCU> blocks_{};
    int blockCount_ = 0;
    unsigned restartInterval_ = 0;
    JpegScanBytes bytes_;
    State state_;
    bool isGood_ = true;
};

} // namespace pex
