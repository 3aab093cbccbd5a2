#include "scene/Landscape.h"

#include "scene/Noise.h"

#include <algorithm>
#include <cmath>

namespace scene {
namespace {

constexpr Color sunColor{1.36, 1.10, 0.78};
constexpr Color shadeColor{0.20, 0.26, 0.36};
constexpr Color hazeColor{0.50, 0.62, 0.80};
constexpr double lakeBed = -7.5;

/// The meadow under the camera, falling to the shore.
double bankHeight(double x, double z) {
    if (z > 300) return lakeBed;
    const double shore = 165 + 50 * (fractalNoise(x / 60, 3.5, 3, 11) - 0.5) + 0.10 * x;
    const double fall = 1 - smoothStep(-140, shore, z);
    const double tufts = 0.30 * fractalNoise(x * 1.5, z * 1.5, 3, 12) * (1 - smoothStep(10, 120, z));
    return 61 * fall + lakeBed + 2.5 * fractalNoise(x / 18, z / 18, 3, 13) * fall + tufts;
}

/// Wooded hills that close the valley at both sides and behind the lake.
double hillHeight(double x, double z) {
    const double behind = smoothStep(650, 2600, z + 0.3 * x);
    const double beside = smoothStep(0.22, 0.75, std::abs(x / z - 0.05)) * smoothStep(240, 800, z);
    const double amount = std::max(behind, beside);
    if (amount <= 0) return 0;
    return amount * 420 * std::pow(fractalNoise(x / 950, z / 950, 6, 21), 1.3);
}

double mountainHeight(double x, double z) {
    const double amount = smoothStep(2400, 8200, z);
    if (amount <= 0) return 0;
    const double crest = ridgedNoise(x / 3400 + 0.35, z / 3400, 8, 31, 0.40);
    return amount * 3300 * crest * crest * (0.50 + 0.50 * valueNoise(x / 5200, z / 5200, 32));
}

double woodDensity(double x, double z, double height) {
    const double patches = smoothStep(0.40, 0.50, fractalNoise(x / 260, z / 260, 4, 41));
    const double treeLine = 1 - smoothStep(420, 640, height + 200 * fractalNoise(x / 300, z / 300, 2, 42));
    return patches * treeLine * smoothStep(0.5, 4, height) * smoothStep(330, 420, z);
}

/// One conifer a cell: a cone with a ragged outline. Share of its full height at this point, 0 beside it.
double coniferAt(double x, double z, double density) {
    constexpr double cell = 7;
    const double u = (0.84 * x + 0.54 * z) / cell,
                 v = (0.84 * z - 0.54 * x) / cell; // no rows towards the eye
    const double cellU = std::floor(u), cellV = std::floor(v);
    const auto i = static_cast<std::int32_t>(cellU), k = static_cast<std::int32_t>(cellV);
    if (hash01(i, k, 51) > density) return 0;
    const double fromTrunkX = u - cellU - 0.3 - 0.4 * hash01(i, k, 52);
    const double fromTrunkZ = v - cellV - 0.3 - 0.4 * hash01(i, k, 53);
    const double reach =
        std::hypot(fromTrunkX, fromTrunkZ) / (0.38 + 0.12 * valueNoise(x * 1.7, z * 1.7, 54));
    return std::max(0.0, 1 - reach);
}

Color grassColor(double x, double z) {
    const double patch = fractalNoise(x / 9, z / 9, 4, 61);
    const double blades = fractalNoise(x * 22, z * 7, 3, 62, 0.7);
    const Color green = mix({0.045, 0.105, 0.018}, {0.27, 0.26, 0.060}, smoothStep(0.25, 0.75, patch));
    return green * (0.3 + 2.2 * blades * blades);
}

/// Small round heads of three kinds of flowers, in drifts.
bool flowerAt(double x, double z, Color& color) {
    constexpr double cell = 0.22;
    const double drift = fractalNoise(x / 5, z / 7, 3, 71);
    const double cellX = std::floor(x / cell), cellZ = std::floor(z / cell);
    const auto i = static_cast<std::int32_t>(cellX), k = static_cast<std::int32_t>(cellZ);
    if (hash01(i, k, 72) > 1.3 * (drift - 0.42)) return false;
    const double dx = x / cell - cellX - 0.5, dz = (z / cell - cellZ - 0.5) * 0.7;
    if (dx * dx + dz * dz > 0.035 + 0.05 * hash01(i, k, 73)) return false;
    const double kind = hash01(i, k, 74) * 0.6 + drift * 0.5;
    color = kind < 0.40   ? Color{0.80, 0.76, 0.70}
            : kind < 0.56 ? Color{0.85, 0.56, 0.04}
                          : Color{0.50, 0.07, 0.12};
    return true;
}

Color rockColor(double x, double y, double z) {
    const double grain = fractalNoise(x / 40 + y / 25, z / 40 - y / 12, 5, 81, 0.65);
    return mix({0.13, 0.12, 0.115}, {0.36, 0.33, 0.30}, grain);
}

Color treeColor(double x, double y, double z, double share) {
    const double branches = fractalNoise(x * 0.9, y * 1.6 + z * 0.3, 3, 91, 0.7);
    const double kind = valueNoise(x / 11, z / 11, 92);
    const Color needles = mix({0.020, 0.045, 0.016}, {0.075, 0.095, 0.022}, kind * kind);
    return needles * (0.45 + 1.1 * branches) * (0.45 + 0.9 * share);
}

Color landColor(double x, double y, double z, const Ground& ground, double steepness) {
    if (ground.treeShare > 0) return treeColor(x, y, z, ground.treeShare);
    Color flower;
    if (z < 70 && flowerAt(x, z, flower)) return flower;
    const double rough = fractalNoise(x / 120, z / 120, 5, 82) - 0.5;
    const double bare = smoothStep(380, 760, y + 500 * rough);
    const double snow =
        smoothStep(900, 1250, y + 900 * rough) * (1 - smoothStep(1.0, 1.7, steepness + 2 * rough));
    const double shore = 1 - smoothStep(0.3, 1.5, y + 2 * rough);
    const Color low = bare < 1 ? mix(grassColor(x, z), {0.20, 0.17, 0.12}, shore) : Color{};
    const Color high = bare > 0 ? rockColor(x, y, z) : Color{};
    return mix(mix(low, high, bare), {0.66, 0.69, 0.74}, snow);
}

} // namespace

Ground groundAt(double x, double z) {
    const double land = std::max(bankHeight(x, z), lakeBed + hillHeight(x, z)) + mountainHeight(x, z);
    const double density = z > 330 && land > 0.5 ? woodDensity(x, z, land) : 0;
    const double share = density > 0 ? coniferAt(x, z, 0.15 + 0.8 * density) : 0;
    return {land + (13 + 11 * valueNoise(x / 9, z / 9, 55)) * share, share};
}

Slope slopeAt(double x, double z, const Ground& ground) {
    constexpr double sunX = -0.74, sunY = 0.48, sunZ = -0.47;
    const double step = std::max(0.12, z * 0.0012);
    const double riseX = (groundAt(x + step, z).height - ground.height) / step;
    const double riseZ = (groundAt(x, z + step).height - ground.height) / step;
    const double steepness = std::hypot(riseX, riseZ);
    const double facing = (-riseX * sunX + sunY - riseZ * sunZ) / std::hypot(1, steepness);
    const double clouds = 0.30 + 0.70 * smoothStep(0.36, 0.52, fractalNoise(x / 900 + 0.7, z / 900, 3, 95));
    return {std::max(0.0, facing) * clouds, steepness};
}

Color surfaceColor(double x, double y, double z, const Ground& ground, const Slope& slope) {
    const Color received = sunColor * (1.85 * slope.light) + shadeColor * 1.1;
    return throughHaze(landColor(x, y, z, ground, slope.steepness) * received, z);
}

Color throughHaze(Color color, double z) {
    return mix(color, hazeColor, 0.85 * (1 - std::exp(-std::pow(z / 13500, 1.25))));
}

Color skyColor(double x, double y) {
    const double up = std::clamp(y / 0.5, 0.0, 1.0);
    const Color clear = mix({0.50, 0.64, 0.80}, {0.055, 0.16, 0.42}, std::pow(up, 0.7));
    const double depth = 1 / (std::max(y, 0.0) + 0.11); // a flat layer of cloud, seen from below
    const double cloudX = x * depth * 0.75 + 4.1, cloudZ = depth * 0.8;
    const double here = fractalNoise(cloudX, cloudZ, 7, 101);
    const double cover = smoothStep(0.53, 0.66, here);
    if (cover <= 0) return clear;
    const double sunward = fractalNoise(cloudX - 0.12, cloudZ - 0.10, 5, 101);
    const double light =
        std::clamp(0.66 + 3.6 * (here - sunward) - 0.45 * smoothStep(0.62, 0.85, here), 0.0, 1.0);
    const Color cloud = mix({0.40, 0.45, 0.54}, {1.00, 0.97, 0.92}, light);
    return mix(clear, mix(cloud, hazeColor, 0.35 * (1 - up)), cover * (0.55 + 0.45 * up));
}

} // namespace scene
