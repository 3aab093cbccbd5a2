#pragma once

#include "peximage/platform/codecs/jpeg/decode/Bits.h"
#include "peximage/platform/codecs/jpeg/decode/Frame.h"
#include "peximage/platform/codecs/jpeg/decode/HuffmanDecoder.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::jpeg {

/// The codes of one baseline scan, decoded MCU by MCU. What the codes of an MCU say depends on nothing that
/// comes before them. Any number of threads at once.
class BaselineCodes {
  public:
    /// Of a decompressor that has read the header of a file whose codes are usual.
    BaselineCodes(const jpeg_decompress_struct& info, const Frame& frame);

    /// Whether they can be decoded here: those of one scan, for numbers that pictures of eight bits have.
    static bool areUsual(const jpeg_decompress_struct& info);

    int blocksOfMcu() const { return blockCount_; }

    /// A coefficient that is not zero: its place in a quad in the upper half, its value in the lower.
    using Packed = std::uint32_t;
    /// The most that an MCU takes when it is written.
    std::size_t longestMcu() const { return static_cast<std::size_t>(blockCount_) * (1 + DCTSIZE2); }
    /// Writes the next MCU, and returns where it ends: for each block the number of coefficients that follow,
    /// and these. The first tells by how much it differs from the one of the component's block before. Null
    /// when the codes are damaged or go on behind the end; the bits are then somewhere in them.
    Packed* writeMcu(Bits& bits, Packed* to) const;

  private:
    struct Block {
        std::size_t dcTable, acTable;
    };

    Packed* writeBlocks(Bits& bits, Packed* to) const;

    std::array<HuffmanDecoder, NUM_HUFF_TBLS> dcTables_, acTables_;
    std::array<Block, D_MAX_BLOCKS_IN_MCU> blocks_{};
    int blockCount_ = 0;
};

} // namespace pex::jpeg
