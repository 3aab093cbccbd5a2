#include "peximage/platform/raster/AffinePicture.h"

#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/PixelSource.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/kernels/CubicRow.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace pex {
namespace {

/// Beyond this gradient a plane pixel spans so much of the picture that its shape is lost.
constexpr double largestGradient = 1 << 20;

std::int64_t fixed(double value) { return std::llround(std::ldexp(value, 32)); }

int reducedSide(int side, double scale) {
    return scale < 1 ? std::max(1, static_cast<int>(std::lround(side * scale))) : side;
}

/// The share of a plane pixel that lies between the edges 0 and `length`. Its centre is at `at`, and it
/// is `gradient` wide.
double coverage(double at, double length, double gradient) {
    const auto inside = [gradient](double distance) { return std::clamp(distance / gradient, -0.5, 0.5); };
    return std::max(0.0, inside(at) + inside(length - at));
}

} // namespace

std::optional<AffinePicture> AffinePicture::make(const CGImage& image, const CGAffineTransform& toPlane,
                                                 const CGColorSpace& colorSpace,
                                                 Interpolation interpolation) {
    CGAffineTransform map = toPlane;
    const PixelSize own{image.width(), image.height()};
    PixelSize size = own;
    if (interpolation == Interpolation::smooth) {
        size = {reducedSide(own.width, std::hypot(map.a, map.b)),
                reducedSide(own.height, std::hypot(map.c, map.d))};
        map = CGAffineTransform::scale(static_cast<double>(own.width) / size.width,
                                       static_cast<double>(own.height) / size.height)
                  .then(map);
    }
    const std::optional<CGAffineTransform> back = map.inverted();
    if (!back || !std::isfinite(back->tx + back->ty)) return std::nullopt;
    if (!(std::hypot(back->a, back->c) < largestGradient && std::hypot(back->b, back->d) < largestGradient))
        return std::nullopt;
    const std::optional<CGImage> scaled = scaledImage(image, size, interpolation);
    const std::optional<CGImage> picture =
        scaled ? convertedImage(*scaled, PixelLayout::premultipliedLast, colorSpace) : std::nullopt;
    const std::optional<PixelView> pixels = picture ? picture->pixels() : std::nullopt;
    if (!pixels) return std::nullopt;
    return AffinePicture(*picture, *pixels, *back, interpolation);
}

AffinePicture::AffinePicture(const CGImage& image, PixelView pixels, const CGAffineTransform& toPicture,
                             Interpolation interpolation)
    : image_(image),
      pixels_(pixels),
      toPicture_(toPicture),
      gradientX_(std::hypot(toPicture.a, toPicture.c)),
      gradientY_(std::hypot(toPicture.b, toPicture.d)),
      interpolation_(interpolation) {}

/// The pixels i of [from, to) whose coordinate at + i * step lies in [begin, end).
AffinePicture::Span AffinePicture::where(double begin, double end, double at, double step, int from,
                                         int to) const {
    if (step == 0) return at >= begin && at < end ? Span{from, to} : Span{};
    double first = (begin - at) / step, last = (end - at) / step;
    if (step < 0) std::swap(first, last);
    const auto bounded = [&](double i) {
        return static_cast<int>(std::clamp<double>(std::ceil(i), from, to));
    };
    return {bounded(first), bounded(last)};
}

AffinePicture::Span AffinePicture::spanOf(int y, int width) const {
    const CGPoint at = toPicture_.apply(CGPoint{0.5, y + 0.5});
    const double marginX = gradientX_ / 2, marginY = gradientY_ / 2;
    const Span across = where(-marginX, pixels_.width + marginX, at.x, toPicture_.a, 0, width);
    return where(-marginY, pixels_.height + marginY, at.y, toPicture_.b, across.begin, across.end);
}

/// Samples one pixel; leaves it unchanged if the picture does not reach it.
void AffinePicture::samplePixel(int x, int y, std::uint8_t* to) const {
    const CGPoint at = toPicture_.apply(CGPoint{x + 0.5, y + 0.5});
    const auto bounded = [](double v, int length) {
        return static_cast<int>(std::clamp(std::floor(v), 0.0, length - 1.0));
    };
    if (interpolation_ == Interpolation::nearest) {
        const bool inside = at.x >= 0 && at.y >= 0 && at.x < pixels_.width && at.y < pixels_.height;
        const std::uint8_t* pixel =
            pixels_.row(bounded(at.y, pixels_.height)) + std::ptrdiff_t{4} * bounded(at.x, pixels_.width);
        if (inside) std::memcpy(to, pixel, 4);
        return;
    }
    const double share =
        coverage(at.x, pixels_.width, gradientX_) * coverage(at.y, pixels_.height, gradientY_);
    if (share <= 0) return;
    const std::int64_t column = fixed(at.x - 0.5), row = fixed(at.y - 0.5);
    int columns[4], rows[4];
    for (int k = 0; k < 4; ++k) {
        columns[k] = std::clamp(static_cast<int>(column >> 32) + k - 1, 0, pixels_.width - 1);
        rows[k] = std::clamp(static_cast<int>(row >> 32) + k - 1, 0, pixels_.height - 1);
    }
    kernels::cubicPixel(pixels_.data, pixels_.bytesPerRow, columns, rows, static_cast<std::uint32_t>(column),
                        static_cast<std::uint32_t>(row), to);
    for (int c = 0; share < 1 && c < 4; ++c)
        to[c] = static_cast<std::uint8_t>(std::lround(to[c] * share));
}

void AffinePicture::sampleRow(int x, int y, int pixels, std::uint8_t* to) const {
    const CGPoint at = toPicture_.apply(CGPoint{x + 0.5, y + 0.5});
    // Well inside, all sixteen neighbours exist. The margin covers rounding along the row.
    constexpr double slack = 1e-3;
    const double marginX = std::max(1.5 + slack, gradientX_ / 2),
                 marginY = std::max(1.5 + slack, gradientY_ / 2);
    Span inner;
    if (interpolation_ == Interpolation::smooth) {
        inner = where(marginX, pixels_.width - marginX, at.x, toPicture_.a, 0, pixels);
        inner = where(marginY, pixels_.height - marginY, at.y, toPicture_.b, inner.begin, inner.end);
    }
    if (inner.isEmpty()) inner = {pixels, pixels};
    for (int i = 0; i < inner.begin; ++i)
        samplePixel(x + i, y, to + std::ptrdiff_t{4} * i);
    const CGPoint first{at.x + inner.begin * toPicture_.a, at.y + inner.begin * toPicture_.b};
    kernels::cubicRow({pixels_.data, pixels_.bytesPerRow, fixed(first.x - 0.5), fixed(first.y - 0.5),
                       fixed(toPicture_.a), fixed(toPicture_.b)},
                      to + std::ptrdiff_t{4} * inner.begin, inner.end - inner.begin);
    for (int i = inner.end; i < pixels; ++i)
        samplePixel(x + i, y, to + std::ptrdiff_t{4} * i);
}

void AffinePicture::sample(int x, int y, MutablePixelView to) const {
    // On a steep slope each pixel comes from another row of the picture. In a narrow tile the next
    // rows find these still in the cache.
    constexpr int tile = 64;
    for (int left = 0; left < to.width; left += tile) {
        const int right = std::min(to.width, left + tile);
        for (int row = 0; row < to.height; ++row) {
            std::uint8_t* target = to.row(row);
            Span reached = spanOf(y + row, x + right);
            reached = {std::clamp(reached.begin - x, left, right), std::clamp(reached.end - x, left, right)};
            std::memset(target + std::ptrdiff_t{4} * left, 0, static_cast<std::size_t>(right - left) * 4);
            if (!reached.isEmpty())
                sampleRow(x + reached.begin, y + row, reached.end - reached.begin,
                          target + std::ptrdiff_t{4} * reached.begin);
        }
    }
}

} // namespace pex
