#pragma once

namespace pex {

/// How a picture is brought to another size.
enum class Interpolation {
    nearest, // the pixel below the centre
    smooth,  // antialiased: Lanczos of three lobes, cubic where the picture is turned or sheared
};

} // namespace pex
