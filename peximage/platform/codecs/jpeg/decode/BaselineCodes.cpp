#include "peximage/platform/codecs/jpeg/decode/BaselineCodes.h"

#include "peximage/platform/codecs/jpeg/decode/BlockSource.h"

#include <algorithm>

namespace pex::jpeg {
namespace {

/// The last coefficient of a block.
constexpr unsigned last = 63;

using Entry = HuffmanDecoder::Entry;

BaselineCodes::Packed packed(unsigned k, Entry code) {
    return static_cast<unsigned>(placeInQuad[k]) << 16 | code.value();
}

/// Decodes codes as long as they are short and lead to coefficients before the last one, k; returns the code
/// that does not.
inline Entry decodeShort(Bits& bits, const HuffmanDecoder& table, unsigned& k, BaselineCodes::Packed*& to) {
    constexpr unsigned codesAtOnce = Bits::ready / HuffmanDecoder::lookupBits;
    for (;;) {
        bits.refill();
#pragma GCC unroll 8
        for (unsigned i = 0; i < codesAtOnce; ++i) {
            const Entry code = table.lookup(bits.peek());
            bits.drop(code.bits());
            k += code.step();
            if (k >= last) return code;
            *to++ = packed(k, code);
        }
    }
}

/// Writes the coefficients behind the first; where the next one goes. Null when they go
/// on beyond the end of the block, or a code is none.
inline BaselineCodes::Packed* decodeAc(Bits& bits, const HuffmanDecoder& table, BaselineCodes::Packed* to) {
    for (unsigned k = 0;;) {
        Entry code = decodeShort(bits, table, k, to);
        if (code.step() == HuffmanDecoder::tooLong) {
            bits.refill();
            code = table.decode(bits.peek());
            bits.drop(code.bits());
            k += code.step() - HuffmanDecoder::tooLong;
        }
        if (k > last) return code.step() == HuffmanDecoder::endOfBlock ? to : nullptr;
        *to++ = packed(k, code);
        if (k == last) return to;
    }
}

} // namespace

bool BaselineCodes::areUsual(const jpeg_decompress_struct& info) {
    const bool isBaseline =
        !info.progressive_mode && info.Ss == 0 && info.Se == last && info.Ah == 0 && info.Al == 0;
    const auto isGood = [](JHUFF_TBL* const* tables, int place, HuffmanDecoder::Use use) {
        return place >= 0 && place < NUM_HUFF_TBLS && tables[place] != nullptr &&
               HuffmanDecoder::isUsual(*tables[place], use);
    };
    return isBaseline &&
           std::all_of(info.comp_info, info.comp_info + info.num_components, [&](const auto& of) {
               return isGood(info.dc_huff_tbl_ptrs, of.dc_tbl_no, HuffmanDecoder::Use::first) &&
                      isGood(info.ac_huff_tbl_ptrs, of.ac_tbl_no, HuffmanDecoder::Use::others);
           });
}

BaselineCodes::BaselineCodes(const jpeg_decompress_struct& info, const Frame& frame) {
    const jpeg_component_info* of = info.comp_info;
    for (const Component& component : frame.components) { // no other tables: nobody has looked at them
        const auto dc = static_cast<std::size_t>(of->dc_tbl_no), ac = static_cast<std::size_t>(of->ac_tbl_no);
        dcTables_[dc] = HuffmanDecoder(*info.dc_huff_tbl_ptrs[dc]);
        acTables_[ac] = HuffmanDecoder(*info.ac_huff_tbl_ptrs[ac]);
        for (int i = 0; i < component.across * component.down; ++i)
            blocks_[static_cast<std::size_t>(blockCount_++)] = {dc, ac};
        ++of;
    }
}

BaselineCodes::Packed* BaselineCodes::writeMcu(Bits& bits, Packed* to) const {
    Bits inRegisters = bits;
    to = writeBlocks(inRegisters, to);
    bits = inRegisters;
    return bits.left() >= 0 ? to : nullptr;
}

inline BaselineCodes::Packed* BaselineCodes::writeBlocks(Bits& bits, Packed* to) const {
    for (int i = 0; i < blockCount_; ++i) {
        const Block& block = blocks_[static_cast<std::size_t>(i)];
        bits.refill();
        const Entry code = dcTables_[block.dcTable].take(bits);
        if (code.step() == HuffmanDecoder::noCode) return nullptr;
        to[1] = packed(0, code);
        const HuffmanDecoder& table = acTables_[block.acTable];
        Packed* const end = decodeAc(bits, table, to + 2);
        if (end == nullptr) return nullptr;
        to[0] = static_cast<Packed>(end - to - 1);
        to = end;
    }
    return to;
}

} // namespace pex::jpeg
