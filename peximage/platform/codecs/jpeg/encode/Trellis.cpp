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

/// The best way to a place where a level stands, all before it being decided.
struct Way {
    std::int64_t cost;
    int from;
    std::int16_t level;
};

} // namespace

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

std::uint64_t Trellis::choose(const std::int16_t* coefficients, std::int16_t* levels) const {
    std::array<Way, 64> ways;    // those of places in `open`
    std::array<Cost, 65> zeroed; // what it costs that all places below are 0
    std::array<int, 64> open;
    int count = 0;
    ways[0] = {0, -1, levels[0]};
    open[static_cast<std::size_t>(count++)] = 0;
    zeroed[1] = 0;
    for (int k = 1; k < 64; ++k) {
        const auto at = static_cast<std::size_t>(k);
        const auto magnitude = static_cast<std::int64_t>(std::abs(int{coefficients[k]}));
        const std::int64_t quotient = magnitude * inverse_[at] >> (24 - fractionBits);
        zeroed[at + 1] = zeroed[at] + squared(quotient);
        const std::int64_t lifted = quotient >= 1 << fractionBits ? quotient + lift_ : quotient;
        const std::int64_t nearest = (lifted + (1 << (fractionBits - 1))) >> fractionBits;
        if (nearest == 0) continue;
        Way best{std::numeric_limits<Cost>::max(), 0, 0};
        for (std::int64_t level = nearest; level >= std::max<std::int64_t>(1, nearest - 1); --level) {
            const Cost error = squared(lifted - (level << fractionBits));
            const int size = bitsOf(level);
            for (int i = 0; i < count; ++i) {
                const int from = open[static_cast<std::size_t>(i)];
                const Cost cost = ways[static_cast<std::size_t>(from)].cost + zeroed[at] -
                                  zeroed[static_cast<std::size_t>(from) + 1] + error +
                                  codeCost(k - from - 1, size);
                if (cost < best.cost) best = {cost, from, static_cast<std::int16_t>(level)};
            }
        }
        ways[at] = best;
        open[static_cast<std::size_t>(count++)] = k;
    }
    int last = 0;
    Cost least = std::numeric_limits<Cost>::max();
    for (int i = 0; i < count; ++i) {
        const int from = open[static_cast<std::size_t>(i)];
        const Cost rest = zeroed[64] - zeroed[static_cast<std::size_t>(from) + 1];
        const Cost cost =
            ways[static_cast<std::size_t>(from)].cost + rest + (from < 63 ? symbolCosts_[0] : 0);
        if (cost < least) {
            least = cost;
            last = from;
        }
    }
    std::fill(levels + 1, levels + 64, std::int16_t{0});
    std::uint64_t nonzero = levels[0] != 0 ? 1 : 0;
    for (int k = last; k > 0; k = ways[static_cast<std::size_t>(k)].from) {
        const std::int16_t level = ways[static_cast<std::size_t>(k)].level;
        levels[k] = coefficients[k] < 0 ? static_cast<std::int16_t>(-level) : level;
        nonzero |= std::uint64_t{1} << k;
    }
    return nonzero;
}

} // namespace pex::jpeg
