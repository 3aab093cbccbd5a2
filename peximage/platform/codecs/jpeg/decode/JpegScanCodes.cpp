#include "peximage/platform/codecs/jpeg/decode/JpegScanCodes.h"

#include "peximage/platform/raster/kernels/JpegDct.h"

namespace pex {
namespace {

/// The last coefficient of a block.
constexpr unsigned last = 63;

using Entry = JpegHuffmanTable::Entry;

JpegScanCodes::Coefficient packed(unsigned k, Entry code) {
    return static_cast<unsigned>(kernels::zigzag[k]) << 16 | code.value();
}

/// Decodes codes as long as they are short and lead to coefficients before the last one, k; returns the code
/// that does not.
template <bool wanted>
inline Entry decodeShort(JpegBits& bits, const JpegHuffmanTable& table, unsigned& k,
                         JpegScanCodes::Coefficient*& to) {
    constexpr unsigned codesAtOnce = JpegBits::ready / JpegHuffmanTable::lookupBits;
    for (;;) {
        bits.refill();
#pragma GCC unroll 8
        for (unsigned i = 0; i < codesAtOnce; ++i) {
            const Entry code = table.lookup(bits.peek());
            bits.drop(code.bits());
            k += code.step();
            if (k >= last) return code;
            if constexpr (wanted) *to++ = packed(k, code);
        }
    }
}

/// Writes the coefficients behind the first, if they are wanted; where the next one goes. Null when they go
/// on beyond the end of the block, or a code is none.
template <bool wanted>
inline JpegScanCodes::Coefficient* decodeAc(JpegBits& bits, const JpegHuffmanTable& table,
                                            JpegScanCodes::Coefficient* to) {
    for (unsigned k = 0;;) {
        Entry code = decodeShort<wanted>(bits, table, k, to);
        if (code.step() == JpegHuffmanTable::tooLong) {
            bits.refill();
            code = table.decode(bits.peek());
            bits.drop(code.bits());
            k += code.step() - JpegHuffmanTable::tooLong;
        }
        if (k > last) return code.step() == JpegHuffmanTable::endOfBlock ? to : nullptr;
        if constexpr (wanted) *to++ = packed(k, code);
        if (k == last) return to;
    }
}

} // namespace

bool JpegScanCodes::areUsual(j_decompress_ptr info) {
    const bool isBaseline = !info->progressive_mode && !info->arith_code && !jpeg_has_multiple_scans(info) &&
                            info->comps_in_scan == info->num_components && info->data_precision == 8;
    if (!isBaseline) return false;
    for (int i = 0; i < info->comps_in_scan; ++i) {
        const jpeg_component_info& component = *info->cur_comp_info[i];
        const JHUFF_TBL& dcTable = *info->dc_huff_tbl_ptrs[component.dc_tbl_no];
        const JHUFF_TBL& acTable = *info->ac_huff_tbl_ptrs[component.ac_tbl_no];
        if (!JpegHuffmanTable::isUsual(dcTable, JpegHuffmanTable::Use::first)) return false;
        if (!JpegHuffmanTable::isUsual(acTable, JpegHuffmanTable::Use::others)) return false;
    }
    return true;
}

JpegScanCodes::JpegScanCodes(j_decompress_ptr info) : blockCount_(info->blocks_in_MCU) {
    for (int i = 0; i < info->comps_in_scan; ++i) { // no other tables: nobody has looked at them
        const jpeg_component_info& of = *info->cur_comp_info[i];
        const auto dc = static_cast<std::size_t>(of.dc_tbl_no), ac = static_cast<std::size_t>(of.ac_tbl_no);
        dcTables_[dc] = JpegHuffmanTable(*info->dc_huff_tbl_ptrs[dc]);
        acTables_[ac] = JpegHuffmanTable(*info->ac_huff_tbl_ptrs[ac]);
    }
    for (int i = 0; i < blockCount_; ++i) {
        const jpeg_component_info& of = *info->cur_comp_info[info->MCU_membership[i]];
        blocks_[static_cast<std::size_t>(i)] = {static_cast<std::size_t>(of.dc_tbl_no),
                                                static_cast<std::size_t>(of.ac_tbl_no),
                                                of.component_needed != FALSE && of.DCT_scaled_size > 1};
    }
}

JpegScanCodes::Coefficient* JpegScanCodes::writeMcu(JpegBits& bits, Coefficient* to) const {
    JpegBits inRegisters = bits;
    to = writeBlocks(inRegisters, to);
    bits = inRegisters;
    return bits.left() >= 0 ? to : nullptr;
}

inline JpegScanCodes::Coefficient* JpegScanCodes::writeBlocks(JpegBits& bits, Coefficient* to) const {
    for (int i = 0; i < blockCount_; ++i) {
        const Block& block = blocks_[static_cast<std::size_t>(i)];
        bits.refill();
        const Entry code = dcTables_[block.dcTable].take(bits);
        if (code.step() == JpegHuffmanTable::noCode) return nullptr;
        to[1] = packed(0, code);
        const JpegHuffmanTable& table = acTables_[block.acTable];
        Coefficient* const end =
            block.wantsAll ? decodeAc<true>(bits, table, to + 2) : decodeAc<false>(bits, table, to + 2);
        if (end == nullptr) return nullptr;
        to[0] = static_cast<Coefficient>(end - to - 1);
        to = end;
    }
    return to;
}

} // namespace pex
