#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

namespace pex::kernels {

/// Colours of one space made of curves and a matrix as those of another.
struct MatrixTables {
    /// What every byte of red, green and blue adds to the light of the result's channels.
    alignas(16) std::array<std::array<std::array<float, 4>, 256>, 3> light{};
    /// The byte of each channel for light from 2^-24 to 1.
    std::array<std::vector<std::uint8_t>, 3> bytes{};

    // Light is looked up by its own bits: the exponent and the first ten of the fraction, so that steps are
    // finest in the dark, where bytes are.
    static constexpr float leastLight = 1.0F / (1 << 24);
    static constexpr int droppedBits = 13;
    static constexpr std::uint32_t leastBits = std::bit_cast<std::uint32_t>(leastLight);
    static constexpr std::uint32_t places =
        ((std::bit_cast<std::uint32_t>(1.0F) - leastBits) >> droppedBits) + 1;
    /// The light in the middle of a place.
    static constexpr float lightAt(std::uint32_t place) {
        return std::bit_cast<float>(leastBits + (place << droppedBits) + (1U << (droppedBits - 1)));
    }
};

/// Converts a row of R G B x; the fourth byte is copied. `from` and `to` may be the same row.
void matrixRow(const std::uint8_t* from, std::uint8_t* to, int pixels, const MatrixTables& tables);

} // namespace pex::kernels
