#pragma once

#include "peximage/platform/codecs/jpeg/decode/HuffmanDecoder.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// One scan of a progressive file: some bits of some coefficients of a component's blocks, or of those of
/// several components in turns.
struct ProgressiveScan {
    std::vector<int> components;
    /// The coefficients, in the order of the file: only the first one, or none that is it.
    unsigned first, last;
    /// The lowest bit of their values that is known after the scan, and whether those above are known before.
    unsigned lowBit;
    bool refines;
    /// For the first coefficient a table for each component, for the others one; a first coefficient that is
    /// refined needs none.
    std::vector<HuffmanDecoder> tables;
    const std::uint8_t *begin, *end; // without what is stuffed
};

/// The scans of a progressive file, that together tell all coefficients whole.
struct Progression {
    std::vector<ProgressiveScan> scans;
    PixelBuffer bytes; // of all scans

    /// Of a decompressor that has read the header, the first scan's included, from bytes in memory, of a kind
    /// that has a Frame. There are no more than can tell something new. Without scans when the file is
    /// damaged or unusual (restart markers, arithmetic codes), and for lack of memory.
    static Progression read(const jpeg_decompress_struct& info);
};

} // namespace pex::jpeg
