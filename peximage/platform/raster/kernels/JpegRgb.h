#pragma once

#include <cstdint>

namespace pex::kernels {

/// A row of R G B x pixels (x is 255) from planes of Y, Cb and Cr, in JFIF's definition with 16 fraction
/// bits.
void rgbFromYcc(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* rgbx,
                int pixels);

/// A row of R G B x pixels (x is 255) from planes of red, green and blue.
void rgbFromPlanes(const std::uint8_t* r, const std::uint8_t* g, const std::uint8_t* b, std::uint8_t* rgbx,
                   int pixels);

} // namespace pex::kernels
