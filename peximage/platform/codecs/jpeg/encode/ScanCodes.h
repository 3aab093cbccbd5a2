#pragma once

#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::jpeg {

/// Which codes a component uses.
enum class Channel : std::uint8_t { luma, chroma };

/// Something of each of the four codes of a scan: of the blocks' first levels and of the others, for each
/// channel.
template <class Each>
struct OfScanCodes {
    std::array<Each, 2> first{}, others{};

    Each& firstOf(Channel channel) { return first[static_cast<std::size_t>(channel)]; }
    const Each& firstOf(Channel channel) const { return first[static_cast<std::size_t>(channel)]; }
    Each& othersOf(Channel channel) { return others[static_cast<std::size_t>(channel)]; }
    const Each& othersOf(Channel channel) const { return others[static_cast<std::size_t>(channel)]; }
};
using ScanCounts = OfScanCodes<SymbolCounts>;
using ScanDescription = OfScanCodes<CodeDescription>;
using ScanCodes = OfScanCodes<SymbolCodes>;

void add(ScanCounts& sum, const ScanCounts& more);

ScanDescription optimalCodes(const ScanCounts& counts);
ScanCodes codesOf(const ScanDescription& description);

/// What these symbols take with these codes, in bits.
double bitsOf(const ScanCounts& counts, const ScanCodes& codes);

/// Fewer bits than this no codes can bring these symbols to, nor any symbols that these are a part of.
double fewestBits(const ScanCounts& counts);

} // namespace pex::jpeg
