#include "peximage/platform/codecs/jpeg/encode/Trellis.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace pex::jpeg {
namespace {

/// Quotients have 8 fraction bits, so errors, their squares, have 16.
constexpr int fractionBits = 8;
constexpr double oneSquared = 1 << (2 * fractionBits);

std::int64_t squared(std::int64_t x) { return x * x; }

int bitsOf(std::int64_t level) { return static_cast<int>(std::bit_width(static_cast<std::uint64_t>(level))); }

} // namespace

/// The best way to a place where a level stands, all before it being decided.
struct Trellis::Way {
    Cost cost;
    int from;
    std::int16_t level;
};

/// The best ways to all places up to one.
struct Trellis::Ways {
    std::array<Way, 64> to; // those of places in `open`
    std::array<int, 64> open;
    int count = 0;
    std::array<Cost, 65> zeroed; // what it costs that all places below are 0

    void add(int k, const Way& way) {
        to[static_cast<std::size_t>(k)] = way;
        open[static_cast<std::size_t>(count++)] = k;
    }
    const Way& at(int k) const { return to[static_cast<std::size_t>(k)]; }
    /// Of the way to `from` and zeros from there up to `end`.
    Cost costUpTo(int end, int from) const {
        return at(from).cost + zeroed[static_cast<std::size_t>(end)] -
               zeroed[static_cast<std::size_t>(from) + 1];
    }
};

Trellis::Trellis(const QuantTable& table, const Rounding& rounding, const SymbolCodes& codes)
    : lift_(std::llround((rounding.roundUp - 0.5) * (1 << fractionBits))) {
    for (std::size_t k = 0; k < 64; ++k)
        inverse_[k] = static_cast<std::uint32_t>((1 << 24) / (8.0 * table[k]));
    constexpr int longestCode = 16;
    for (std::size_t s = 0; s < symbolCosts_.size(); ++s) {
        const int known = SymbolCodes::length(codes[s]);
        const int length = known > 0 ? known : longestCode + static_cast<int>(s & 15);
        symbolCosts_[s] = std::llround(length * rounding.bitWorth * oneSquared);
    }
}

Trellis::Cost Trellis::codeCost(int zeros, int size) const {
    constexpr std::size_t sixteenZeros = 0xF0;
    const auto symbol = static_cast<std::size_t>((zeros & 15) << 4 | size);
    return (zeros >> 4) * symbolCosts_[sixteenZeros] + symbolCosts_[symbol];
}

std::int64_t Trellis::quotient(std::int16_t coefficient, int k) const {
    const auto magnitude = static_cast<std::int64_t>(std::abs(int{coefficient}));
    return magnitude * inverse_[static_cast<std::size_t>(k)] >> (24 - fractionBits);
}

std::uint64_t Trellis::choose(const std::int16_t* coefficients, std::int16_t* levels) const {
    Ways ways;
    ways.add(0, {0, -1, levels[0]});
    ways.zeroed[1] = 0;
    for (int k = 1; k < 64; ++k)
        extend(ways, coefficients[k], k);
    std::fill(levels + 1, levels + 64, std::int16_t{0});
    std::uint64_t nonzero = levels[0] != 0 ? 1 : 0;
    for (int k = cheapestEnd(ways); k > 0; k = ways.at(k).from) {
        const std::int16_t level = ways.at(k).level;
        levels[k] = coefficients[k] < 0 ? static_cast<std::int16_t>(-level) : level;
        nonzero |= std::uint64_t{1} << k;
    }
    return nonzero;
}

void Trellis::extend(Ways& ways, std::int16_t coefficient, int k) const {
    const auto at = static_cast<std::size_t>(k);
    const std::int64_t exact = quotient(coefficient, k);
    ways.zeroed[at + 1] = ways.zeroed[at] + squared(exact);
    const std::int64_t lifted = exact >= 1 << fractionBits ? exact + lift_ : exact;
    const std::int64_t nearest = (lifted + (1 << (fractionBits - 1))) >> fractionBits;
    if (nearest == 0) return;
    Way best = cheapest(ways, k, lifted, nearest);
    if (nearest > 1) {
        const Way lower = cheapest(ways, k, lifted, nearest - 1);
        if (lower.cost < best.cost) best = lower;
    }
    ways.add(k, best);
}

/// To a level at `k`.
Trellis::Way Trellis::cheapest(const Ways& ways, int k, std::int64_t lifted, std::int64_t level) const {
    const Cost error = squared(lifted - (level << fractionBits));
    const int size = bitsOf(level);
    Way best{std::numeric_limits<Cost>::max(), 0, static_cast<std::int16_t>(level)};
    for (int i = 0; i < ways.count; ++i) {
        const int from = ways.open[static_cast<std::size_t>(i)];
        const Cost cost = ways.costUpTo(k, from) + error + codeCost(k - from - 1, size);
        if (cost < best.cost) {
            best.cost = cost;
            best.from = from;
        }
    }
    return best;
}

/// The last place of the best way through the whole block.
int Trellis::cheapestEnd(const Ways& ways) const {
    int last = 0;
    Cost least = std::numeric_limits<Cost>::max();
    for (int i = 0; i < ways.count; ++i) {
        const int from = ways.open[static_cast<std::size_t>(i)];
        const Cost cost = ways.costUpTo(64, from) + (from < 63 ? symbolCosts_[0] : 0);
        if (cost < least) {
            least = cost;
            last = from;
        }
    }
    return last;
}

} // namespace pex::jpeg
