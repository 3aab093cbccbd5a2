#pragma once

#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"
#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"

#include <array>
#include <cstdint>

namespace pex::jpeg {

/// Chooses all levels of a block together, so that error and bits are least in sum: a level may be nearest,
/// one less or 0, and what it costs depends on the zeros before it and on the lengths of the codes.
class Trellis {
  public:
    /// `codes` are those of a coding of the same picture that stands already.
    Trellis(const QuantTable& table, const Rounding& rounding, const SymbolCodes& codes);

    /// Replaces all levels of a block but the first; the mask of those that are not 0, the first among them.
    std::uint64_t choose(const std::int16_t* coefficients, std::int16_t* levels) const;

  private:
    using Cost = std::int64_t;
    struct Way;
    struct Ways;

    /// What a level of so many bits costs after so many zeros.
    Cost codeCost(int zeros, int size) const;
    /// In 1/256.
    std::int64_t quotient(std::int16_t coefficient, int k) const;
    void extend(Ways& ways, std::int16_t coefficient, int k) const;
    Way cheapest(const Ways& ways, int k, std::int64_t lifted, std::int64_t level) const;
    int cheapestEnd(const Ways& ways) const;

    /// 2^24 / divisor: a magnitude times it is its quotient in 24 fraction bits.
    std::array<std::uint32_t, 64> inverse_;
    /// Added to quotients, in 1/256.
    std::int64_t lift_;
    std::array<Cost, 256> symbolCosts_;
};

} // namespace pex::jpeg
