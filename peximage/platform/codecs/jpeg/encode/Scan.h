#pragma once

#include "peximage/platform/codecs/jpeg/encode/BitWriter.h"
#include "peximage/platform/codecs/jpeg/encode/BlockQuantiser.h"
#include "peximage/platform/codecs/jpeg/encode/ForwardTransform.h"
#include "peximage/platform/codecs/jpeg/encode/ScanCodes.h"
#include "peximage/platform/codecs/jpeg/encode/Trellis.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace pex::jpeg {

/// One component as a scan walks it: `across` x `down` blocks in each minimum coded unit.
struct ScanComponent {
    std::shared_ptr<const BlockQuantiser> quantiser;
    const TransformedPlane* plane;
    Channel channel;
    int across, down;
    /// Goes over the levels once more, where there is one.
    std::shared_ptr<const Trellis> trellis = nullptr;

    /// Levels of so many blocks, and masks of those that are not 0.
    void quantise(const std::int16_t* coefficients, int blocks, std::int16_t* levels,
                  kernels::LevelMasks* masks) const;
};

/// What is coded at one quality. Rows of units can be coded on their own, in any order.
struct Scan {
    std::vector<ScanComponent> components;
    int unitsWide = 0, unitsHigh = 0;
};

/// Some neighbouring units of a row.
struct UnitRange {
    int row, first, end;
};

/// Adds the symbols of some units.
void countSymbols(const Scan& scan, const UnitRange& range, ScanCounts& counts);

/// The symbols of a row of units, in the order of the file: each one byte, followed by its value in as many
/// bytes as that takes, the low one first.
using RowSymbols = std::vector<std::uint8_t>;

/// The most bytes that the symbols of a row can take.
std::size_t mostSymbolBytes(const Scan& scan);

/// Writes the symbols of a row down and adds them to the counts; `scratch` holds `mostSymbolBytes`.
RowSymbols symbolsOfRow(const Scan& scan, int row, ScanCounts& counts, std::uint8_t* scratch);

/// Codes a row of units of this scan.
CodedBits codeRow(const Scan& scan, const RowSymbols& symbols, const ScanCodes& codes);

} // namespace pex::jpeg
