#include "peximage/platform/codecs/jpeg/decode/HuffmanDecoder.h"

#include <algorithm>
#include <iterator>

namespace pex::jpeg {
namespace {

constexpr unsigned longestCode = 16;

/// The number in the first `size` bits: where the first of them is 0 it is negative.
int numberIn(std::uint64_t bits, unsigned size) {
    if (size == 0) return 0;
    const auto plain = static_cast<int>(bits >> (64 - size));
    const bool isPositive = bits >> 63 != 0;
    return isPositive ? plain : plain - (1 << size) + 1;
}

/// `bits` begin with the code.
HuffmanDecoder::Entry entryOf(std::uint64_t bits, unsigned codeBits, unsigned symbol) {
    const unsigned zeros = symbol >> 4, size = symbol & 15;
    if (size == 0 && zeros != 15) return {codeBits, HuffmanDecoder::endOfBlock, static_cast<int>(zeros)};
    return {codeBits + size, zeros + 1, numberIn(bits << codeBits, size)};
}

} // namespace

bool HuffmanDecoder::isUsual(const JHUFF_TBL& table, Use use) {
    int codes = 0, free = 1; // codes of a length that no shorter code begins
    for (int length = 1; length <= static_cast<int>(longestCode); ++length) {
        codes += table.bits[length];
        free = 2 * free - table.bits[length];
        if (free < 0 || codes > 256) return false;
    }
    return std::all_of(table.huffval, table.huffval + codes, [use](std::uint8_t symbol) {
        if (use == Use::first) return symbol <= 11;
        return (symbol & 15) <= (use == Use::others ? 10 : 1);
    });
}

HuffmanDecoder::HuffmanDecoder(const JHUFF_TBL& table) {
    entries_.fill({0, tooLong, 0});
    std::copy(std::begin(table.huffval), std::end(table.huffval), symbols_.begin());
    std::uint32_t code = 0;
    int symbol = 0;
    for (unsigned length = 1; length <= longestCode; ++length, code <<= 1) {
        symbolOffset_[length] = symbol - static_cast<int>(code);
        for (int i = 0; i < table.bits[length]; ++i)
            addCode(code++, length, symbols_[static_cast<std::size_t>(symbol++)]);
        endOfCodes_[length] = code << (longestCode - length);
    }
}

void HuffmanDecoder::addCode(std::uint64_t code, unsigned codeBits, unsigned symbol) {
    const unsigned size = symbol & 15, bits = codeBits + size;
    if (codeBits > lookupBits) return;
    auto to = entries_.begin() + static_cast<std::ptrdiff_t>(code << (lookupBits - codeBits));
    if (bits > lookupBits) { // for `decode`, which reads the number
        std::fill_n(to, std::size_t{1} << (lookupBits - codeBits),
                    Entry(0, tooLong, static_cast<int>(codeBits << 8 | symbol)));
        return;
    }
    const std::size_t places = std::size_t{1} << (lookupBits - bits);
    for (std::uint64_t number = 0; number < std::uint64_t{1} << size; ++number)
        to = std::fill_n(to, places, entryOf((code << size | number) << (64 - bits), codeBits, symbol));
}

HuffmanDecoder::Entry HuffmanDecoder::decode(std::uint64_t bits) const {
    if (const Entry known = lookup(bits); known.value() != 0)
        return entryOf(bits, known.value() >> 8, known.value() & 255);
    const std::uint64_t first = bits >> (64 - longestCode);
    for (unsigned length = lookupBits + 1; length <= longestCode; ++length) {
        if (first >= endOfCodes_[length]) continue;
        const auto code = static_cast<int>(bits >> (64 - length));
        return entryOf(bits, length, symbols_[static_cast<std::size_t>(code + symbolOffset_[length]) & 255]);
    }
    return {0, noCode, 0};
}

} // namespace pex::jpeg
