#pragma once

#include "peximage/platform/geometry/CGRect.h"

#include <cmath>
#include <numbers>
#include <optional>

namespace pex {

/// x' = a x + c y + tx, y' = b x + d y + ty. The default is the identity.
struct CGAffineTransform {
    /// The six numbers of the formula above.
    /// @{
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
    /// @}

    /// Each axis times a factor, about the origin.
    static constexpr CGAffineTransform scale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
    /// Moves by so much.
    static constexpr CGAffineTransform translation(double x, double y) { return {1, 0, 0, 1, x, y}; }
    /// Counter-clockwise where y grows upward; the angle is in radians.
    static CGAffineTransform rotation(double radians) {
        const double s = std::sin(radians), c = std::cos(radians);
        return {c, s, -s, c, 0, 0};
    }

    /// The same in degrees, exact for quarter turns.
    static CGAffineTransform rotationByDegrees(double degrees) {
        constexpr CGAffineTransform quarters[] = {
            {}, {0, 1, -1, 0, 0, 0}, {-1, 0, 0, -1, 0, 0}, {0, -1, 1, 0, 0, 0}};
        const double turn = std::fmod(degrees, 360);
        if (std::fmod(turn, 90) == 0) return quarters[static_cast<int>(turn < 0 ? turn + 360 : turn) / 90];
        return rotation(turn / 180 * std::numbers::pi);
    }

    /// Where the point goes.
    constexpr CGPoint apply(CGPoint p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }

    /// The smallest upright rectangle around the transformed rectangle.
    CGRect apply(const CGRect& r) const {
        const CGPoint p[] = {apply(CGPoint{r.minX(), r.minY()}), apply(CGPoint{r.maxX(), r.minY()}),
                             apply(CGPoint{r.minX(), r.maxY()}), apply(CGPoint{r.maxX(), r.maxY()})};
        double x0 = p[0].x, x1 = p[0].x, y0 = p[0].y, y1 = p[0].y;
        for (const CGPoint& q : p) {
            x0 = std::min(x0, q.x), x1 = std::max(x1, q.x);
            y0 = std::min(y0, q.y), y1 = std::max(y1, q.y);
        }
        return {x0, y0, x1 - x0, y1 - y0};
    }

    /// This transform first, then the other.
    constexpr CGAffineTransform then(const CGAffineTransform& o) const {
        return {a * o.a + b * o.c, a * o.b + b * o.d,          c * o.a + d * o.c,
                c * o.b + d * o.d, tx * o.a + ty * o.c + o.tx, tx * o.b + ty * o.d + o.ty};
    }

    /// True for scales by positive factors and moves: nothing is turned, mirrored or sheared.
    constexpr bool keepsUpright() const { return b == 0 && c == 0 && a > 0 && d > 0; }

    /// Absent when the transform flattens the plane.
    std::optional<CGAffineTransform> inverted() const {
        const double det = a * d - b * c;
        if (!(std::abs(det) > 0) || !std::isfinite(det)) return std::nullopt;
        return CGAffineTransform{
            d / det, -b / det, -c / det, a / det, (c * ty - d * tx) / det, (b * tx - a * ty) / det};
    }

    friend constexpr bool operator==(const CGAffineTransform&, const CGAffineTransform&) = default;
};

} // namespace pex
