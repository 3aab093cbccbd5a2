#pragma once

#include <array>
#include <cstdint>
#include <vector>

/// ICC profiles that the colour engine makes: grey of a gamma, and RGB of wide primaries, gamma 2.2 if not
/// another one.
std::vector<std::uint8_t> grayProfile(double gamma);
std::vector<std::uint8_t> wideProfile(double gamma = 2.2);

/// What 8-bit grey of such a profile looks like in sRGB, as the colour engine tells it for a transformation
/// of its own.
std::uint8_t srgbOfGrey(const std::vector<std::uint8_t>& profile, std::uint8_t grey);

/// The largest difference between bytes of sRGB and what the colour engine makes, step by step in floating
/// point, of bytes R G B x of a profile.
double distanceFromExact(const std::vector<std::uint8_t>& profile, const std::vector<std::uint8_t>& rgbx,
                         const std::vector<std::uint8_t>& srgb);
