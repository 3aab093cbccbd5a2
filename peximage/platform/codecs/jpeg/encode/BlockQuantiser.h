#pragma once

#include "peximage/platform/codecs/jpeg/encode/OptimalCode.h"
#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"
#include "peximage/platform/raster/kernels/JpegQuantize.h"

#include <array>
#include <cstdint>

namespace pex::jpeg {

/// Turns the coefficients of one component into levels: whole steps of its table, chosen by how they look and
/// by what they cost.
class BlockQuantiser {
  public:
    /// What a level that is not worth its bits is told by.
    enum class Choice {
        /// Its size alone.
        threshold,
        /// About the bits that a lone level of one takes.
        loneOnes
    };

    BlockQuantiser(const QuantTable& table, const Rounding& rounding, Choice choice);

    /// Levels of so many blocks, and for each a mask of those that are not 0.
    void quantise(const std::int16_t* coefficients, int blocks, std::int16_t* levels,
                  kernels::LevelMasks* masks) const;

    /// The level of a block's mean tone, which depends on nothing else.
    int quantiseFirst(std::int16_t coefficient) const { return quantizer_.quantize(coefficient, 0); }

  private:
    std::uint64_t withoutCostly(const std::int16_t* coefficients, kernels::LevelMasks masks) const;

    kernels::Quantizer quantizer_;
    /// 2^24 / divisor: a magnitude times it is its quotient in 24 fraction bits.
    std::array<std::uint32_t, 64> inverse_;
    /// From which quotient on, in 1/256, a level of one is worth its bits: [zeros before it][zeros behind
    /// it], the last column where nothing follows.
    std::array<std::array<std::uint16_t, 64>, 64> worthFrom_;
};

} // namespace pex::jpeg
