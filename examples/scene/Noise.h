#pragma once

#include <cstdint>

namespace scene {

/// A number in [0, 1) that depends on nothing but its arguments: the same picture on every machine.
double hash01(std::int32_t x, std::int32_t y, std::uint32_t seed);

/// Smooth noise in [0, 1] with features of about one unit.
double valueNoise(double x, double y, std::uint32_t seed);

/// Octaves of value noise, each twice as fine and `gain` times as strong as the one before; in [0, 1].
double fractalNoise(double x, double y, int octaves, std::uint32_t seed, double gain = 0.5);

/// Fractal noise folded at its middle, so that it has sharp crests; in [0, 1].
double ridgedNoise(double x, double y, int octaves, std::uint32_t seed, double gain = 0.5);

/// A normally distributed number (mean 0, deviation 1, cut off at ±3) for one pixel, as sensor noise is.
double grain(std::int32_t x, std::int32_t y, std::uint32_t seed);

} // namespace scene
