#pragma once

#include "peximage/platform/codecs/JpegHuffmanTable.h"
#include "peximage/platform/codecs/JpegScanBytes.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex {

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
