#pragma once

#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"
#include "peximage/platform/codecs/jpeg/encode/Tables.h"
#include "peximage/platform/raster/kernels/JpegQuantize.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// One component as a scan walks it: `across` x `down` blocks in each minimum coded unit.
struct ScanComponent {
    kernels::Quantizer quantizer;
    const CoefficientPlane* plane;
    const HuffmanCodes* codes;
    int across, down;
};

/// What is coded at one quality. Rows of units can be coded on their own, in any order.
struct Scan {
    std::vector<ScanComponent> components;
    int unitsWide = 0, unitsHigh = 0;
};

/// The coded bits of some rows of units, without the zero bytes that a file puts after each 0xFF.
struct CodedBits {
    std::vector<std::uint8_t> bytes; // the last one is filled up with zeros
    std::uint64_t bits = 0;
};

/// Some neighbouring units of a row.
struct UnitRange {
    int row, first, end;
};

std::uint64_t countBits(const Scan& scan, const UnitRange& range);

/// The most bytes that coding a row of units can take.
std::size_t mostBytesPerRow(const Scan& scan);

/// Codes a row of units; `scratch` holds `mostBytesPerRow`.
CodedBits codeRow(const Scan& scan, int row, std::uint8_t* scratch);

} // namespace pex::jpeg
