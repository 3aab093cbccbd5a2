#include "scene/Noise.h"

#include <cmath>

namespace scene {
namespace {

std::uint32_t mix(std::int32_t x, std::int32_t y, std::uint32_t seed) {
    std::uint32_t h = static_cast<std::uint32_t>(x) * 0x9E3779B1u ^
                      static_cast<std::uint32_t>(y) * 0x85EBCA77u ^ seed * 0xC2B2AE3Du;
    h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
    h = (h ^ (h >> 12)) * 0x297A2D39u;
    return h ^ (h >> 15);
}

double lerp(double a, double b, double t) { return a + (b - a) * t; }

/// 6t⁵ − 15t⁴ + 10t³: no visible lattice, since slope and curvature vanish at the lattice points.
double fade(double t) { return t * t * t * (t * (t * 6 - 15) + 10); }

/// Turns each octave by an angle that fits no symmetry of the lattice.
void turn(double& x, double& y) {
    const double turnedX = x * 0.8 - y * 0.6;
    y = x * 0.6 + y * 0.8;
    x = turnedX;
}

} // namespace

double hash01(std::int32_t x, std::int32_t y, std::uint32_t seed) { return mix(x, y, seed) * 0x1p-32; }

double valueNoise(double x, double y, std::uint32_t seed) {
    const double floorX = std::floor(x), floorY = std::floor(y);
    const auto cellX = static_cast<std::int32_t>(floorX), cellY = static_cast<std::int32_t>(floorY);
    const double u = fade(x - floorX), v = fade(y - floorY);
    const double top = lerp(hash01(cellX, cellY, seed), hash01(cellX + 1, cellY, seed), u);
    const double bottom = lerp(hash01(cellX, cellY + 1, seed), hash01(cellX + 1, cellY + 1, seed), u);
    return lerp(top, bottom, v);
}

double fractalNoise(double x, double y, int octaves, std::uint32_t seed, double gain) {
    double sum = 0, range = 0, strength = 1;
    for (int octave = 0; octave < octaves; ++octave) {
        sum += strength * valueNoise(x, y, seed + static_cast<std::uint32_t>(octave));
        range += strength;
        strength *= gain;
        x *= 2;
        y *= 2;
        turn(x, y);
    }
    return sum / range;
}

double ridgedNoise(double x, double y, int octaves, std::uint32_t seed, double gain) {
    double sum = 0, range = 0, strength = 1;
    for (int octave = 0; octave < octaves; ++octave) {
        const double centred = 2 * valueNoise(x, y, seed + static_cast<std::uint32_t>(octave)) - 1;
        sum += strength * (1 - std::abs(centred));
        range += strength;
        strength *= gain;
        x *= 2;
        y *= 2;
        turn(x, y);
    }
    return sum / range;
}

double grain(std::int32_t x, std::int32_t y, std::uint32_t seed) {
    // Four bytes of one hash add up to a bell curve close enough for a sensor, at the price of one hash.
    const std::uint32_t h = mix(x, y, seed);
    const int sum = static_cast<int>((h & 255) + (h >> 8 & 255) + (h >> 16 & 255) + (h >> 24));
    const double deviation = 147.8; // of the sum of four even bytes: √(4 · (256² − 1) / 12)
    const double value = (sum - 510) / deviation;
    return value < -3 ? -3 : value > 3 ? 3 : value;
}

} // namespace scene
