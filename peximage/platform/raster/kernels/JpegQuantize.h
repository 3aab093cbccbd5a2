#pragma once

#include <array>
#include <cstdint>

namespace pex::kernels {

/// Division by the entries of a quantisation table, prepared as multiplications, with what decides how
/// quotients are rounded to levels. Magnitudes are those of `forwardDct`, 8 times the coefficients.
struct Quantizer {
    /// Added before the division: half of the divisor rounds to the nearest, less rounds down more.
    alignas(64) std::uint16_t add[64];
    /// (|c| + add) / divisor = ((|c| + add) * reciprocal >> 16) * scale >> 16, exactly below 2^15.
    alignas(64) std::uint16_t reciprocal[64];
    alignas(64) std::uint16_t scale[64];
    /// Magnitudes below it become 0, whatever the quotient.
    alignas(64) std::int16_t first[64];
    /// What is not 0 and below it is weak: hardly worth its bits.
    alignas(64) std::int16_t weak[64];

    Quantizer() = default;
    /// Divides by 8 times the entries (1…255, in zigzag order) and rounds to the nearest; nothing is weak.
    explicit Quantizer(const std::array<std::uint8_t, 64>& table);

    int quantize(int coefficient, int k) const {
        const int magnitude = coefficient < 0 ? -coefficient : coefficient;
        if (magnitude < first[k]) return 0;
        const auto numerator = static_cast<std::uint32_t>(magnitude + add[k]);
        const int level = static_cast<int>((numerator * reciprocal[k] >> 16) * scale[k] >> 16);
        return coefficient < 0 ? -level : level;
    }
};

/// The levels of a block that are not 0, and those among them that are weak: bit k is level k's.
struct LevelMasks {
    std::uint64_t nonzero, weak;
};

/// Quantises blocks of 64 coefficients.
void quantizeBlocks(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                    std::int16_t* levels, LevelMasks* masks);

} // namespace pex::kernels
