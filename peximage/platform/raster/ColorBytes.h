#pragma once

#include "peximage/platform/raster/CGColor.h"
#include "peximage/platform/raster/CGColorSpace.h"

#include <array>
#include <cstdint>

namespace pex {

/// A channel or opacity of 0–1 as 0–255, rounded and limited to that range; 0 for what is not a number.
std::uint8_t channelByte(double channel);

/// R G B A of a colour, straight, as numbers of `colorSpace`.
std::array<std::uint8_t, 4> colorBytes(const CGColor& color, const CGColorSpace& colorSpace);

} // namespace pex
