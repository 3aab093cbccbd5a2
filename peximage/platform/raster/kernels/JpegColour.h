#pragma once

#include <cstdint>

namespace pex::kernels {

/// Y of a row of R G B x pixels, in JFIF's definition with 16 fraction bits, rounded.
void lumaRow(const std::uint8_t* rgbx, std::uint8_t* y, int pixels);

/// Cb and Cr of a row of R G B x pixels, in JFIF's definition with 16 fraction bits, rounded.
void chromaRow(const std::uint8_t* rgbx, std::uint8_t* cb, std::uint8_t* cr, int pixels);

/// The mean of each 2 x 2 samples of two rows. Halves are rounded down in even columns and up in odd ones, so
/// that no bias adds up. Works in steps of 32: the rows must be long enough for `samples` rounded up to that.
void halveRows(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* mean, int samples);

/// How many of the 2 x 2 samples of two rows lie apart by at least `range`.
int countContrasts(const std::uint8_t* upper, const std::uint8_t* lower, int cells, int range);

} // namespace pex::kernels
