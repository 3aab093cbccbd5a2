#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace pex::kernels {

/// Where each coefficient of a block goes in a JPEG file: zigzag[k] is the natural place (8 v + u) of the
/// k-th.
inline constexpr std::array<std::uint8_t, 64> zigzag = [] {
    std::array<std::uint8_t, 64> order{};
    int x = 0, y = 0;
    for (auto& place : order) {
        place = static_cast<std::uint8_t>(8 * y + x);
        const bool up = (x + y) % 2 == 0;
        int& along = up ? x : y;
        int& back = up ? y : x;
        if (along == 7) {
            ++back;
        } else {
            ++along;
            if (back > 0) --back;
        }
    }
    return order;
}();

/// The forward cosine transform of a row of 8 x 8 blocks: `blocks` of them side by side in eight rows of
/// samples. It is the accurate integer one (Loeffler, Ligtenberg and Moschytz 1989, with 13 fraction bits)
/// that JPEG coders agree on to the bit; results are 8 times the true coefficients, 64 a block in zigzag
/// order. Works on four blocks at a time: the rows must be readable that far.
void forwardDct(const std::uint8_t* samples, std::ptrdiff_t bytesPerRow, int blocks,
                std::int16_t* coefficients);

} // namespace pex::kernels
