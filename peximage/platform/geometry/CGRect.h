#pragma once

#include "peximage/platform/geometry/CGPoint.h"
#include "peximage/platform/geometry/CGSize.h"

#include <algorithm>
#include <cmath>

namespace pex {

/// A rectangle by its origin and size. The stored size may be negative; the measuring functions below work on
/// the standardised rectangle, whose sides are not.
struct CGRect {
    /// The corner with the least coordinates, if no side is negative.
    CGPoint origin;
    /// From that corner to the opposite one; may be negative.
    CGSize size;

    constexpr CGRect() = default;
    /// A rectangle by its corner and size.
    /// @{
    constexpr CGRect(CGPoint o, CGSize s) : origin(o), size(s) {}
    constexpr CGRect(double x, double y, double w, double h) : origin{x, y}, size{w, h} {}
    /// @}

    /// The least and largest coordinates that the rectangle covers.
    /// @{
    constexpr double minX() const { return std::min(origin.x, origin.x + size.width); }
    constexpr double minY() const { return std::min(origin.y, origin.y + size.height); }
    constexpr double maxX() const { return std::max(origin.x, origin.x + size.width); }
    constexpr double maxY() const { return std::max(origin.y, origin.y + size.height); }
    /// @}
    /// The sides' lengths, never negative.
    /// @{
    constexpr double width() const { return size.width < 0 ? -size.width : size.width; }
    constexpr double height() const { return size.height < 0 ? -size.height : size.height; }
    /// @}

    /// True when no area is covered, or when a coordinate is not a number.
    bool isEmpty() const { return !(width() > 0 && height() > 0) || std::isnan(origin.x + origin.y); }

    /// The smallest rectangle with whole-number corners that covers this one.
    CGRect integral() const {
        const double x0 = std::floor(minX()), y0 = std::floor(minY());
        return {x0, y0, std::ceil(maxX()) - x0, std::ceil(maxY()) - y0};
    }

    /// What both rectangles cover; an empty rectangle when they do not meet.
    CGRect intersection(const CGRect& other) const {
        const double x0 = std::max(minX(), other.minX()), x1 = std::min(maxX(), other.maxX());
        const double y0 = std::max(minY(), other.minY()), y1 = std::min(maxY(), other.maxY());
        return x1 > x0 && y1 > y0 ? CGRect{x0, y0, x1 - x0, y1 - y0} : CGRect{};
    }

    friend constexpr bool operator==(const CGRect&, const CGRect&) = default;
};

} // namespace pex
