#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// How often each symbol occurs. The low four bits of a symbol say how many bits of value follow its code.
using SymbolCounts = std::array<std::uint32_t, 256>;

/// A Huffman code as files describe it: how many codes there are of each length from 1 to 16, and the symbols
/// in the order of their codes.
struct CodeDescription {
    std::array<std::uint8_t, 16> counts{};
    std::vector<std::uint8_t> symbols;

    bool operator==(const CodeDescription&) const = default;
};

/// The code that takes fewest bits for these symbols with at most 16 bits each, none of ones alone, which
/// files keep free. There is always a symbol: 0 where none occurs.
CodeDescription optimalCode(const SymbolCounts& counts);

/// The codes of symbols, ready to be followed by the bits of the value that they announce.
class SymbolCodes {
  public:
    SymbolCodes() = default;
    explicit SymbolCodes(const CodeDescription& description);

    /// A code shifted left to leave room for the value's bits, over the total length in the five lowest bits;
    /// 0 for symbols without code.
    using Entry = std::uint32_t;
    static constexpr std::uint32_t bits(Entry entry) { return entry >> 5; }
    static constexpr int length(Entry entry) { return static_cast<int>(entry & 31); }

    Entry operator[](std::size_t symbol) const { return entries_[symbol]; }

    /// The bits that all these symbols take, with their values.
    std::uint64_t bitsOf(const SymbolCounts& counts) const;

  private:
    std::array<Entry, 256> entries_{};
};

} // namespace pex::jpeg
