#include "peximage/platform/codecs/jpeg/encode/BlockQuantiser.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

namespace pex::jpeg {
namespace {

constexpr std::size_t nothingFollows = 63;

/// About how many bits a level of one takes after so many zeros, its sign included.
double bitsOfOne(int zeros) { return 3 + 2.1 * std::log2(1 + zeros); }

} // namespace

BlockQuantiser::BlockQuantiser(const QuantTable& table, const Rounding& rounding, Choice choice)
    : quantizer_(table) {
    for (std::size_t k = 0; k < 64; ++k) {
        const double divisor = 8 * table[k];
        inverse_[k] = static_cast<std::uint32_t>((1 << 24) / divisor);
        if (k == 0) continue; // the mean tone is rounded to the nearest
        const double deadZone = rounding.deadZone * std::min(1.0, static_cast<double>(k) / 10);
        quantizer_.add[k] = static_cast<std::uint16_t>(rounding.roundUp * divisor);
        quantizer_.first[k] = static_cast<std::int16_t>(std::ceil((0.5 + deadZone) * divisor));
        if (choice == Choice::loneOnes) quantizer_.weak[k] = static_cast<std::int16_t>(1.25 * divisor);
    }
    for (int before = 0; before < 64; ++before) {
        for (int behind = 0; behind < 64; ++behind) {
            double saved = bitsOfOne(before);
            if (behind < static_cast<int>(nothingFollows))
                saved += bitsOfOne(behind) - bitsOfOne(before + 1 + behind);
            const double from = 0.5 + rounding.bitWorth / 2 * saved;
            worthFrom_[static_cast<std::size_t>(before)][static_cast<std::size_t>(behind)] =
                static_cast<std::uint16_t>(std::clamp(256 * from, 0.0, 65535.0));
        }
    }
}

void BlockQuantiser::quantise(const std::int16_t* coefficients, int blocks, std::int16_t* levels,
                              kernels::LevelMasks* masks) const {
    kernels::quantizeBlocks(coefficients, blocks, quantizer_, levels, masks);
    for (int b = 0; b < blocks; ++b) {
        if (masks[b].weak == 0) continue;
        const std::uint64_t kept = withoutCostly(coefficients + 64 * b, masks[b]);
        for (std::uint64_t dropped = masks[b].nonzero & ~kept; dropped != 0; dropped &= dropped - 1)
            levels[64 * b + std::countr_zero(dropped)] = 0;
        masks[b].nonzero = kept;
    }
}

std::uint64_t BlockQuantiser::withoutCostly(const std::int16_t* coefficients,
                                            kernels::LevelMasks masks) const {
    std::uint64_t kept = masks.nonzero;
    for (std::uint64_t rest = masks.weak; rest != 0; rest &= rest - 1) {
        const int k = std::countr_zero(rest);
        const std::uint64_t below = (kept & ((std::uint64_t{1} << k) - 1)) | 1, above = kept >> k >> 1;
        const int before = k - 64 + std::countl_zero(below);
        const auto behind = above != 0 ? static_cast<std::size_t>(std::countr_zero(above)) : nothingFollows;
        const auto magnitude = static_cast<std::uint64_t>(std::abs(int{coefficients[k]}));
        const std::uint64_t quotient = magnitude * inverse_[static_cast<std::size_t>(k)] >> 16;
        if (quotient < worthFrom_[static_cast<std::size_t>(before)][behind]) kept &= ~(std::uint64_t{1} << k);
    }
    return kept;
}

} // namespace pex::jpeg
