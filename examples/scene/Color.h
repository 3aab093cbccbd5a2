#pragma once

#include <algorithm>

namespace scene {

/// Light by its red, green and blue share, 0 (none) to 1 (white), before the gamma of the screen.
struct Color {
    double r = 0, g = 0, b = 0;
};

constexpr Color operator+(Color a, Color b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
constexpr Color operator*(Color c, double factor) { return {c.r * factor, c.g * factor, c.b * factor}; }
constexpr Color operator*(Color a, Color b) { return {a.r * b.r, a.g * b.g, a.b * b.b}; }

constexpr Color mix(Color a, Color b, double t) { return a * (1 - t) + b * t; }

/// 0 below `from`, 1 above `to`, and a soft S between them.
constexpr double smoothStep(double from, double to, double x) {
    const double t = std::clamp((x - from) / (to - from), 0.0, 1.0);
    return t * t * (3 - 2 * t);
}

} // namespace scene
