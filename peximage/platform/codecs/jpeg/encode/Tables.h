#pragma once

#include <array>
#include <cstdint>

namespace pex::jpeg {

/// A quantisation table in zigzag order.
using QuantTable = std::array<std::uint8_t, 64>;

/// The two tables of a quality.
struct QuantTables {
    QuantTable luma, chroma;

    bool operator==(const QuantTables&) const = default;
};

/// The recommended tables scaled for a quality from 0 to 1. With Q = 100 x quality, at least 1 (also for a
/// quality that is no number) and at most 100, entries are multiplied by 50 / Q below 50 and 2 - Q / 50 from
/// 50 up. Q is not rounded: every difference in quality that changes an entry counts.
QuantTables quantTables(double quality);

/// A recommended Huffman table: how many codes there are of each length from 1 to 16, and the symbols in the
/// order of their codes.
struct HuffmanTable {
    std::array<std::uint8_t, 16> counts;
    const std::uint8_t* symbols;
    int symbolCount;
};

/// Codes of one component's kind, ready to be followed by the bits of the value they announce.
class HuffmanCodes {
  public:
    HuffmanCodes(const HuffmanTable& dc, const HuffmanTable& ac);

    /// A code shifted left to leave room for the value's bits, over the total length in the five lowest bits.
    using Entry = std::uint32_t;
    static constexpr std::uint32_t bits(Entry entry) { return entry >> 5; }
    static constexpr int length(Entry entry) { return static_cast<int>(entry & 31); }

    /// For a DC difference of `size` bits.
    Entry dc(int size) const { return dc_[static_cast<std::size_t>(size)]; }
    /// For an AC value of `size` bits after `run` zeros. (0, 0) ends a block, (15, 0) stands for 16 zeros.
    Entry ac(int run, int size) const { return ac_[static_cast<std::size_t>(run << 4 | size)]; }

  private:
    std::array<Entry, 16> dc_{};
    std::array<Entry, 256> ac_{};
};

enum class Channel { luma, chroma };

const HuffmanTable& dcTable(Channel channel);
const HuffmanTable& acTable(Channel channel);
const HuffmanCodes& huffmanCodes(Channel channel);

} // namespace pex::jpeg
