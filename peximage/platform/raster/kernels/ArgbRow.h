#pragma once

#include <array>
#include <cstdint>

/// Edits of rows of A R G B pixels, in place.
namespace pex::kernels {

/// The bytes of one pixel as they lie in memory.
using Argb = std::array<std::uint8_t, 4>;

/// Every pixel becomes `pixel`, but for the bits that `keep` has set.
void overwriteRow(std::uint8_t* argb, int pixels, const Argb& pixel, const Argb& keep);

/// Every pixel of alpha 0 becomes `pixel`.
void fillTransparentRow(std::uint8_t* argb, int pixels, const Argb& pixel);

enum class Gate {
    darkToBlack,  // red + green + blue below the limit
    lightToWhite, // above it
    toEither,     // below it to black, else to white
};

/// Sets the colours of pixels by the sum of their channels, 0 to 765; alpha stays.
void gateRow(std::uint8_t* argb, int pixels, Gate which, int limit);

enum class MaskBy {
    luminance, // (red + green + blue) / 3, rounded down
    alpha,
};

/// Sets alpha to what the same pixel of the mask says, A R G B too; colours stay. The rows must not overlap.
void maskRow(std::uint8_t* argb, const std::uint8_t* mask, int pixels, MaskBy by);

/// Sets alpha to 0 where the squared distance of the colour to `colour` is at most `largestSquare`;
/// nowhere when that is negative.
void keyRow(std::uint8_t* argb, int pixels, const Argb& colour, int largestSquare);

} // namespace pex::kernels
