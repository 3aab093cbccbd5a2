#pragma once

#include <array>
#include <cstdint>

namespace pex::kernels {

/// Division by the entries of a quantisation table, prepared as multiplications.
class Quantizer {
  public:
    Quantizer() = default;
    /// Divides by 8 times the entries (1…255, in zigzag order), since `forwardDct` gives 8 times the
    /// coefficients.
    explicit Quantizer(const std::array<std::uint8_t, 64>& table);

    /// Half of each divisor, added first so that the quotient is rounded.
    alignas(64) std::uint16_t half[64];
    /// |c| / divisor = (|c| * reciprocal >> 16) * scale >> 16, exactly for all |c| below 2^15.
    alignas(64) std::uint16_t reciprocal[64];
    alignas(64) std::uint16_t scale[64];

    int quantize(int coefficient, int k) const {
        const int magnitude = (coefficient < 0 ? -coefficient : coefficient) + half[k];
        const int level =
            static_cast<int>((static_cast<std::uint32_t>(magnitude) * reciprocal[k] >> 16) * scale[k] >> 16);
        return coefficient < 0 ? -level : level;
    }
};

/// Quantises blocks of 64 coefficients. Bit k of `nonzero[b]` tells whether level k of block b is not 0.
void quantizeBlocks(const std::int16_t* coefficients, int blocks, const Quantizer& quantizer,
                    std::int16_t* levels, std::uint64_t* nonzero);

} // namespace pex::kernels
