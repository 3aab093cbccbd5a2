#pragma once

#include "peximage/platform/codecs/jpeg/encode/FileHeader.h"
#include "peximage/platform/codecs/jpeg/encode/Scan.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex::jpeg {

/// All levels of a component, in blocks as its coefficients lie.
class LevelPlane {
  public:
    explicit LevelPlane(const TransformedPlane& of)
        : blocksWide_(of.blocksWide),
          realWide_(of.realWide),
          realHigh_(of.realHigh),
          levels_(of.bytes() / sizeof(std::int16_t)),
          masks_(levels_.size() / 64) {}

    std::int16_t* block(int x, int y) { return levels_.data() + 64 * indexOf(x, y); }
    const std::int16_t* block(int x, int y) const { return levels_.data() + 64 * indexOf(x, y); }
    kernels::LevelMasks* masks(int x, int y) { return masks_.data() + indexOf(x, y); }
    /// The places of a block's levels that are not 0.
    std::uint64_t nonzero(int x, int y) const {
        return masks_[static_cast<std::size_t>(indexOf(x, y))].nonzero;
    }
    int realWide() const { return realWide_; }
    int realHigh() const { return realHigh_; }

  private:
    std::ptrdiff_t indexOf(int x, int y) const { return std::ptrdiff_t{y} * blocksWide_ + x; }

    int blocksWide_, realWide_, realHigh_;
    std::vector<std::int16_t> levels_;
    std::vector<kernels::LevelMasks> masks_;
};

/// What a scan of a progressive file says, in its order: symbols with the bits of their values, and bits that
/// stand alone.
class ProgressiveSymbols {
  public:
    explicit ProgressiveSymbols(std::size_t codes) : counts(codes) {}

    /// How often the symbols of each code occur.
    std::vector<SymbolCounts> counts;

    /// A symbol of a code, followed by so many bits (up to 15).
    void put(std::size_t code, unsigned symbol, int bits, unsigned value) {
        ++counts[code][symbol];
        unannounced_ += static_cast<std::uint64_t>(bits) - (symbol & 15);
        entries_.push_back(value << 16 | static_cast<unsigned>(bits) << 12 |
                           static_cast<unsigned>(code) << 8 | symbol);
    }
    void putBit(bool bit) {
        ++unannounced_;
        entries_.push_back((bit ? 1u : 0u) << 16 | 1u << 12 | aloneFlag);
    }

    /// How many bits `coded` makes of them.
    std::uint64_t bits(const std::vector<SymbolCodes>& codes) const;
    CodedBits coded(const std::vector<SymbolCodes>& codes) const;

  private:
    static constexpr std::uint32_t aloneFlag = 1u << 9;

    std::vector<std::uint32_t> entries_;
    std::uint64_t unannounced_ = 0; // bits of values that their symbols do not count
};

/// The first levels of all components, unit by unit as in a baseline file.
ProgressiveSymbols symbolsOfMeans(const Scan& scan, const std::vector<LevelPlane>& planes);

/// Other levels of one component: of all blocks, or of every so many rows of them as a sample.
ProgressiveSymbols symbolsOfPart(const LevelPlane& plane, const PartOfPicture& part, int everySoManyRows = 1);

} // namespace pex::jpeg
