#pragma once

#include "peximage/platform/codecs/jpeg/decode/JpegBits.h"
#include "peximage/platform/codecs/jpeg/decode/JpegHuffmanTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex {

/// The codes of one baseline scan, decoded MCU by MCU. What the codes of an MCU say depends on nothing that
/// comes before them. Any number of threads at once.
class JpegScanCodes {
  public:
    /// Of a decompressor that has just been started.
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
    /// Writes the next MCU, and returns where it ends: for each block the number of coefficients that follow,
    /// and these. The first tells by how much it differs from the one of the component's block before. Blocks
    /// of components that are not wanted, and those that are decoded at an eighth, have no more than the
    /// first. Null when the codes are damaged or go on behind the end; the bits are then somewhere in them.
    Coefficient* writeMcu(JpegBits& bits, Coefficient* to) const;

  private:
    struct Block {
        std::size_t dcTable, acTable;
        bool wantsAll;
    };

    Coefficient* writeBlocks(JpegBits& bits, Coefficient* to) const;

    std::array<JpegHuffmanTable, NUM_HUFF_TBLS> dcTables_, acTables_;
    std::array<Block, D_MAX_BLOCKS_IN_MCU> blocks_{};
    int blockCount_ = 0;
};

} // namespace pex
