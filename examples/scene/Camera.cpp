#include "scene/Camera.h"

#include "scene/Landscape.h"
#include "scene/Noise.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace scene {
namespace {

constexpr double eyeHeight = 30; // above the water
constexpr double farthest = 15000;
constexpr double horizonShare = 0.50; // of the picture's height
constexpr double focalShare = 1.12;   // focal length over the picture's height
constexpr std::uint8_t land = 255, water = 0;

struct Lens {
    explicit Lens(const Frame& frame)
        : focal(focalShare * frame.height), centre(frame.width / 2.0), horizon(horizonShare * frame.height) {}

    double across(int column) const { return (column + 0.5 - centre) / focal; }
    double above(int row) const { return (horizon - row - 0.5) / focal; }
    double rowOf(double y, double z) const { return horizon - focal * (y - eyeHeight) / z; }

    double focal, centre, horizon;
};

/// Runs work(i) for all i in [0, count) on all cores.
template <class Work>
void inParallel(int count, Work work) {
    std::atomic<int> next = 0;
    const auto loop = [&] {
        for (int i = next++; i < count; i = next++)
            work(i);
    };
    std::vector<std::thread> threads(std::max(1u, std::thread::hardware_concurrency()));
    for (std::thread& thread : threads)
        thread = std::thread(loop);
    for (std::thread& thread : threads)
        thread.join();
}

/// A film's answer to light: a soft shoulder, then the gamma of sRGB; looked up in steps of 1/1024.
std::uint8_t develop(double light) {
    static const auto table = [] {
        std::array<std::uint8_t, 4097> values;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double exposed = 1 - std::exp(-1.9 * (static_cast<double>(i) / 1024));
            const double encoded =
                exposed <= 0.0031308 ? 12.92 * exposed : 1.055 * std::pow(exposed, 1 / 2.4) - 0.055;
            values[i] = static_cast<std::uint8_t>(std::lround(255 * std::clamp(encoded, 0.0, 1.0)));
        }
        return values;
    }();
    return table[static_cast<std::size_t>(std::clamp(light, 0.0, 4.0) * 1024)];
}

void put(std::uint8_t* pixel, Color color, std::uint8_t kind) {
    pixel[0] = develop(color.r);
    pixel[1] = develop(color.g);
    pixel[2] = develop(color.b);
    pixel[3] = kind;
}

/// Walks away from the camera and paints whatever rises above all that stood before it; what is left at the
/// top is sky. Steps grow with the distance so that each is about a pixel high on level ground.
void paintColumn(const Frame& frame, const Lens& lens, int column) {
    const double across = lens.across(column);
    int painted = frame.height; // rows from here down are done
    double z = 3;
    while (z < farthest && painted > 0) {
        const Ground ground = groundAt(across * z, z);
        const int row = std::max(0, static_cast<int>(lens.rowOf(std::max(ground.height, 0.0), z)));
        if (row < painted) {
            const bool wet = ground.height < 0;
            const Slope slope = wet ? Slope{} : slopeAt(across * z, z, ground);
            for (int y = painted - 1; y >= row; --y) {
                const double height = eyeHeight + lens.above(y) * z;
                put(frame.pixel(column, y),
                    wet ? Color{} : surfaceColor(across * z, height, z, ground, slope), wet ? water : land);
            }
            painted = row;
        }
        const double drop = std::max(eyeHeight - ground.height, 1.5);
        z += std::min(6 * z / lens.focal, 1.5 * z * z / (lens.focal * drop));
    }
    for (int y = 0; y < painted; ++y)
        put(frame.pixel(column, y), skyColor(across, lens.above(y)), land);
}

/// The lake mirrors what stands as far above the horizon as the water lies below it, shaken by ripples that
/// are flat far off, and darker where one looks steeply down.
void mirrorRow(const Frame& frame, const Lens& lens, int y) {
    const double below = -lens.above(y);
    if (below <= 0) return;
    const double z = eyeHeight / below;
    const double clear = 0.42 + 0.45 * std::exp(-9 * below);
    for (int x = 0; x < frame.width; ++x) {
        std::uint8_t* pixel = frame.pixel(x, y);
        if (pixel[3] != water) continue;
        const double worldX = lens.across(x) * z;
        const double breeze = smoothStep(0.42, 0.62, fractalNoise(worldX / 160, z / 90, 3, 111));
        const double ripple = fractalNoise(worldX / 1.6, z / 2.6, 4, 112) - 0.5;
        const double lift = lens.focal * (below + (0.02 + 0.10 * breeze) * (ripple + 0.25 * breeze));
        const int fromRow =
            std::clamp(static_cast<int>(lens.horizon - lift), 0, static_cast<int>(lens.horizon) - 1);
        const int fromColumn =
            std::clamp(x + static_cast<int>(0.012 * lens.focal * ripple), 0, frame.width - 1);
        const std::uint8_t* mirrored = frame.pixel(fromColumn, fromRow);
        constexpr std::array<double, 3> depths{14, 40, 52};
        for (std::size_t c = 0; c < 3; ++c)
            pixel[c] = static_cast<std::uint8_t>(clear * mirrored[c] + (1 - clear) * depths[c]);
    }
}

/// The sensor's noise, stronger in brightness than in colour and in the dark than in the light, and the
/// lens's fall of light towards the corners.
void exposeRow(const Frame& frame, const Lens& lens, int y) {
    for (int x = 0; x < frame.width; ++x) {
        std::uint8_t* pixel = frame.pixel(x, y);
        const double across = lens.across(x), above = lens.above(y);
        const double falloff = 1 - 0.16 * (across * across + above * above);
        const double strength = 1.25 - 0.75 * pixel[1] / 255.0;
        const double luma = 6.0 * strength * grain(x, y, 121);
        for (std::uint32_t c = 0; c < 3; ++c) {
            const double chroma = 1.8 * strength * grain(x / 2, y / 2, 122 + c);
            pixel[c] =
                static_cast<std::uint8_t>(std::clamp(falloff * pixel[c] + luma + chroma + 0.5, 0.0, 255.0));
        }
        pixel[3] = 255;
    }
}

} // namespace

void takePhoto(const Frame& frame) {
    const Lens lens(frame);
    inParallel(frame.width, [&](int column) { paintColumn(frame, lens, column); });
    inParallel(frame.height, [&](int y) { mirrorRow(frame, lens, y); });
    inParallel(frame.height, [&](int y) { exposeRow(frame, lens, y); });
}

} // namespace scene
