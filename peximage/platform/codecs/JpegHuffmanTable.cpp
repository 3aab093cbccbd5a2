#include "peximage/platform/codecs/JpegHuffmanTable.h"

#include <algorithm>
#include <iterator>

namespace pex {

JpegHuffmanTable::JpegHuffmanTable(const JHUFF_TBL& table) {
    std::copy(std::begin(table.huffval), std::end(table.huffval), symbols_.begin());
    unsigned code = 0;
    int symbol = 0;
    for (int length = 1; length <= 16; ++length) {
        const auto at = static_cast<std::size_t>(length);
        symbolOffset_[at] = symbol - static_cast<int>(code);
        for (int i = 0; i < table.bits[length]; ++i)
            addCode(code++, length, symbols_[static_cast<std::size_t>(symbol++)]);
        lastCode_[at] = table.bits[length] > 0 ? static_cast<int>(code) - 1 : -1;
        code <<= 1;
    }
}

void JpegHuffmanTable::addCode(unsigned code, int length, unsigned symbol) {
    if (length > lookupBits) return;
    const int spare = lookupBits - length;
    std::fill_n(entries_.begin() + (code << spare), 1U << spare,
                Entry(symbol, static_cast<unsigned>(length)));
}

JpegHuffmanTable::Entry JpegHuffmanTable::longCode(std::uint64_t bits) const {
    for (int length = lookupBits + 1; length <= 16; ++length) {
        const auto code = static_cast<int>(bits >> (64 - length));
        const auto at = static_cast<std::size_t>(length);
        if (code <= lastCode_[at])
            return {symbols_[static_cast<std::size_t>(code + symbolOffset_[at]) & 255],
                    static_cast<unsigned>(length)};
    }
    return {};
}

} // namespace pex
