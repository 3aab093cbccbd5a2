#include "peximage/platform/raster/RoundedFrame.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pex {
namespace {

/// A rectangle with round corners, centred on the picture's middle; in pixels.
struct Shape {
    double halfWidth, halfHeight, radius;

    /// The share of a pixel inside the shape, from its distance to the edge; x and y go from the
    /// picture's centre to the pixel's.
    double coverage(double x, double y) const {
        const double outX = std::abs(x) - halfWidth + radius, outY = std::abs(y) - halfHeight + radius;
        const double outside = std::hypot(std::max(outX, 0.0), std::max(outY, 0.0));
        const double distance = outside + std::min(std::max(outX, outY), 0.0) - radius;
        return std::clamp(0.5 - distance, 0.0, 1.0);
    }
};

struct Frame {
    Shape outer, inner;
    std::array<double, 4> border; // premultiplied, 0-255
    double borderAlpha;

    void apply(std::uint8_t* pixel, double x, double y) const {
        const double whole = outer.coverage(x, y), content = inner.coverage(x, y);
        const double edge = whole - std::min(content, whole);
        for (std::size_t i = 0; i < 4; ++i) {
            const double below = pixel[i] * (whole - edge * borderAlpha);
            pixel[i] = static_cast<std::uint8_t>(std::lround(std::min(below + border[i] * edge, 255.0)));
        }
    }
};

Frame makeFrame(const MutablePixelView& pixels, double radius, double width, const CGColor& color) {
    const double halfWidth = pixels.width / 2.0, halfHeight = pixels.height / 2.0;
    const double shorter = std::min(halfWidth, halfHeight);
    const double outerRadius = std::clamp(radius, 0.0, shorter), inset = std::clamp(width, 0.0, shorter);
    const double alpha = std::clamp(color.alpha, 0.0, 1.0);
    const auto premultiplied = [&](double channel) { return std::clamp(channel, 0.0, 1.0) * alpha * 255; };
    return {{halfWidth, halfHeight, outerRadius},
            {halfWidth - inset, halfHeight - inset, std::max(outerRadius - inset, 0.0)},
            {premultiplied(color.red), premultiplied(color.green), premultiplied(color.blue), alpha * 255},
            alpha};
}

} // namespace

void frameRounded(const MutablePixelView& pixels, double radius, double borderWidth, const CGColor& border) {
    const Frame frame = makeFrame(pixels, radius, borderWidth, border);
    // Pixels farther from the edges than this lie wholly inside both shapes.
    const int band = static_cast<int>(std::ceil(
                         std::max(frame.outer.radius, pixels.width / 2.0 - frame.inner.halfWidth))) +
                     1;
    for (int row = 0; row < pixels.height; ++row) {
        const double y = row + 0.5 - pixels.height / 2.0;
        const bool nearEdge = row < band || row >= pixels.height - band;
        const int left = nearEdge ? pixels.width : std::min(band, pixels.width);
        const int right = nearEdge ? pixels.width : std::max(pixels.width - band, left);
        const auto change = [&](int from, int to) {
            for (int x = from; x < to; ++x)
                frame.apply(pixels.row(row) + std::ptrdiff_t{x} * 4, x + 0.5 - pixels.width / 2.0, y);
        };
        change(0, left);
        change(right, pixels.width);
    }
}

} // namespace pex
