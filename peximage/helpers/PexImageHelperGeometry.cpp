#include "peximage/helpers/PexImageHelperGeometry.h"

#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/geometry/Truncated.h"
#include "peximage/platform/toolkit/NSScreen.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace pex {

double PexImageHelper::getRatio(CGSize of) { return of.width / of.height; }
double PexImageHelper::getRatio(const CGRect& of) { return getRatio(of.size); }
double PexImageHelper::getRatio(const PexImage& of) { return getRatio(of.size); }
double PexImageHelper::getRatio(int of, int by) { return static_cast<double>(of) / static_cast<double>(by); }

std::string PexImageHelper::getReadableRatio(CGSize of) {
    const std::int64_t width = truncated(of.width), height = truncated(of.height);
    const std::int64_t divisor = std::max<std::int64_t>(std::gcd(width, height), 1);
    return std::to_string(width / divisor) + ':' + std::to_string(height / divisor);
}

std::string PexImageHelper::getReadableRatio(const PexImage& of) { return getReadableRatio(of.size); }

std::string PexImageHelper::getReadableRatio(const URL& of) {
    const auto image = load(of);
    return image ? getReadableRatio(*image) : std::string();
}

std::string PexImageHelper::getReadableImageSize(CGSize of) {
    return std::to_string(truncated(of.width)) + 'x' + std::to_string(truncated(of.height));
}

std::string PexImageHelper::getReadableImageSize(const PexImage& of) { return getReadableImageSize(of.size); }

std::string PexImageHelper::getReadableImageSize(const URL& of) {
    const auto image = load(of);
    return image ? getReadableImageSize(*image) : std::string();
}

CGSize PexImageHelper::getCroppingSize(const CGRect& rect, double ratio, double zoom) {
    const double own = rect.width() / rect.height();
    if (own == ratio) return rect.size;
    if (own > ratio) {
        const double height = rect.height() / zoom;
        return {height * ratio, height};
    }
    const double width = rect.width() / zoom;
    return {width, width / ratio};
}

CGRect PexImageHelper::getNormalizedTo1Rect(const CGRect& boundsRect, const CGRect& innerRect) {
    return {(innerRect.origin.x - boundsRect.minX()) / boundsRect.width(),
            (innerRect.origin.y - boundsRect.minY()) / boundsRect.height(),
            innerRect.width() / boundsRect.width(), innerRect.height() / boundsRect.height()};
}

CGRect PexImageHelper::getDenormalizedRect(const CGRect& boundsRect, const CGRect& normalizedTo1Rect) {
    return {normalizedTo1Rect.minX() * boundsRect.width() + boundsRect.minX(),
            normalizedTo1Rect.minY() * boundsRect.height() + boundsRect.minY(),
            normalizedTo1Rect.width() * boundsRect.width(), normalizedTo1Rect.height() * boundsRect.height()};
}

CGRect PexImageHelper::boundRect(const CGRect& bounds, const CGRect& rect) {
    return {std::min(bounds.maxX() - rect.width(), std::max(bounds.minX(), rect.minX())),
            std::min(bounds.maxY() - rect.height(), std::max(bounds.minY(), rect.minY())), rect.width(),
            rect.height()};
}

CGPoint PexImageHelper::boundPoint(CGPoint point, const CGRect& rect, CGSize insetSize) {
    const double dx = insetSize.width / 2, dy = insetSize.height / 2;
    return {std::min(rect.maxX() - dx, std::max(rect.minX() + dx, point.x)),
            std::min(rect.maxY() - dy, std::max(rect.minY() + dy, point.y))};
}

CGPoint PexImageHelper::getCenter(const CGRect& of) {
    return {of.minX() + of.width() * 0.5, of.minY() + of.height() * 0.5};
}

CGPoint PexImageHelper::getCenterOfGravity(const std::vector<CGRect>& rects) {
    double area = 0;
    CGPoint sum;
    for (const CGRect& rect : rects) {
        const double own = rect.width() * rect.height();
        area += own;
        sum = sum + getCenter(rect) * own;
    }
    return sum * (1 / area);
}

CGPoint PexImageHelper::sumPoints(CGPoint a, CGPoint b) { return a + b; }
CGPoint PexImageHelper::weightedPoint(CGPoint point, double factor) { return point * factor; }

CGRect PexImageHelper::getRect(CGPoint centeredAt, CGSize withSize) {
    return {centeredAt.x - withSize.width * 0.5, centeredAt.y - withSize.height * 0.5, withSize.width,
            withSize.height};
}

CGRect PexImageHelper::getRect(const PexImage& image) { return {{0, 0}, image.size}; }

CGSize PexImageHelper::getSize(const CGImage& image) { return image.size(); }

CGSize PexImageHelper::getRepresentedSize(const PexImage& image) {
    return {image.image->width(), image.image->height()};
}

double PexImageHelper::bakingScaleFactor() { return NSScreen::largestBackingScaleFactor(); }

CGSize PexImageHelper::getActualSizeWithoutRetina(CGSize size) { return size / bakingScaleFactor(); }
CGPoint PexImageHelper::getActualPointWithoutRetina(CGPoint point) { return point / bakingScaleFactor(); }

CGRect PexImageHelper::getActualRectWithRepresentation(const PexImage& image, const CGRect& rect) {
    const CGSize points = getRepresentedSize(image);
    const double sx = image.size.width / points.width, sy = image.size.height / points.height;
    return {rect.minX() / sx, rect.minY() / sy, rect.width() / sx, rect.height() / sy};
}

} // namespace pex
