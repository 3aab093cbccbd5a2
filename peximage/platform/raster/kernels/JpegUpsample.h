#pragma once

#include <cstdint>

namespace pex::kernels {

/// How JPEG decoders spread subsampled colours over more pixels: each new sample is three quarters of the
/// nearest old one and a quarter of the next, in each direction, and roundings take turns. At the ends of a
/// row its last sample counts for the one that is not there.

/// Twice as many samples across.
void doubleAcross(const std::uint8_t* row, std::uint8_t* to, int samples);

/// Twice as many samples across, for a row between two: `near` is three times as near as `far`.
void doubleBoth(const std::uint8_t* near, const std::uint8_t* far, std::uint8_t* to, int samples);

/// As many samples, for a row between two. Rounds halves up for a row that lies below `near`, else down.
void doubleDown(const std::uint8_t* near, const std::uint8_t* far, bool below, std::uint8_t* to, int samples);

/// Each sample as often as that, without any filter.
void repeatAcross(const std::uint8_t* row, std::uint8_t* to, int samples, int times);

} // namespace pex::kernels
