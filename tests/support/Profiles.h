#pragma once

#include <cstdint>
#include <vector>

/// ICC profiles that the colour engine makes: grey of a gamma, and RGB of wide primaries with gamma 2.2.
std::vector<std::uint8_t> grayProfile(double gamma);
std::vector<std::uint8_t> wideProfile();

/// What 8-bit grey of such a profile looks like in sRGB, as the colour engine tells it for a transformation
/// of its own.
std::uint8_t srgbOfGrey(const std::vector<std::uint8_t>& profile, std::uint8_t grey);
