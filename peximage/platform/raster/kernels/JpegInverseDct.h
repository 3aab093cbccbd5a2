#pragma once

#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// Coefficients that are to be transformed back stand in quads: four blocks side by side, whose rows lie next
/// to each other. The one at place p of block b (p = 8 v + u) is number 32 (p / 8) + 8 b + p % 8 of its quad.
inline constexpr int blocksOfQuad = 4;
inline constexpr int coefficientsOfQuad = 64 * blocksOfQuad;

/// The inverse cosine transform of a row of quads into eight rows of samples. Coefficients are multiplied by
/// `steps`, the 64 entries of a quantisation table in natural order, first. It is the accurate integer one
/// (Loeffler, Ligtenberg and Moschytz 1989, with 13 fraction bits) that JPEG coders agree on to the bit; its
/// numbers are those of 16 bits that pictures of eight bits a sample do not leave.
void inverseDct(const std::int16_t* coefficients, const std::int16_t* steps, int quads, std::uint8_t* samples,
                std::ptrdiff_t bytesPerRow);

} // namespace pex::kernels
