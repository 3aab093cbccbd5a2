#pragma once

#include <optional>

namespace pex {

/// Where the first row and the first column of the stored pixels lie in the upright picture; the values are
/// those of the EXIF orientation tag. The comment tells what makes the stored picture upright.
enum class Orientation {
    up = 1,            // nothing
    upMirrored = 2,    // mirror left to right
    down = 3,          // half a turn
    downMirrored = 4,  // mirror top to bottom
    leftMirrored = 5,  // swap rows and columns
    right = 6,         // quarter turn clockwise
    rightMirrored = 7, // swap rows and columns, then half a turn
    left = 8,          // quarter turn anticlockwise
};

/// Absent for numbers that are no orientation.
constexpr std::optional<Orientation> orientationFromExif(int value) {
    if (value < 1 || value > 8) return std::nullopt;
    return static_cast<Orientation>(value);
}

/// True when the upright picture is as wide as the stored one is high.
constexpr bool swapsSides(Orientation orientation) { return orientation >= Orientation::leftMirrored; }

} // namespace pex
