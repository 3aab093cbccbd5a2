#include "peximage/platform/raster/CGContext.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/ReasonWatch.h"
#include "peximage/platform/raster/AffinePicture.h"
#include "peximage/platform/raster/ColorBytes.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/Turning.h"
#include "peximage/platform/raster/kernels/BlendRow.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace pex {
namespace {

/// How a picture is turned by a transform that keeps upright rectangles upright; absent for all other
/// transforms. Rounding errors of sines and cosines beside zeros are ignored.
std::optional<Orientation> orientationOf(const CGAffineTransform& t) {
    constexpr double slack = 1e-9;
    const auto vanishes = [](double x, double beside) { return std::abs(x) <= std::abs(beside) * slack; };
    using enum Orientation;
    if (vanishes(t.b, t.a) && vanishes(t.c, t.d)) {
        if (t.a < 0) return t.d < 0 ? down : upMirrored;
        return t.d < 0 ? downMirrored : up;
    }
    if (vanishes(t.a, t.b) && vanishes(t.d, t.c)) {
        if (t.b < 0) return t.c < 0 ? leftMirrored : right;
        return t.c < 0 ? left : rightMirrored;
    }
    return std::nullopt;
}

} // namespace

/// Whole pixels of the bitmap, row 0 on top; may reach outside it.
struct CGContext::PixelRect {
    double x0, y0, x1, y1;

    CGRect inside(int width, int height) const {
        const double left = std::max(x0, 0.0), top = std::max(y0, 0.0);
        return {left, top, std::min<double>(x1, width) - left, std::min<double>(y1, height) - top};
    }
};

std::shared_ptr<CGContext> CGContext::make(int width, int height, PixelLayout layout,
                                           const CGColorSpace& colorSpace) {
    if (width < 1 || height < 1) return nullptr;
    const std::size_t stride =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(bytesPerPixel(layout));
    PixelBuffer pixels = PixelBuffer::makeZeroed(stride * static_cast<std::size_t>(height));
    if (!pixels) return nullptr;
    return std::shared_ptr<CGContext>(new CGContext(width, height, layout, colorSpace, std::move(pixels)));
}

std::shared_ptr<CGContext> CGContext::make(int width, int height, PixelLayout layout,
                                           const CGColorSpace& colorSpace, PixelBuffer memory) {
    if (width < 1 || height < 1 || !memory) return nullptr;
    const std::size_t stride =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(bytesPerPixel(layout));
    if (memory.size() / stride < static_cast<std::size_t>(height)) return nullptr;
    std::shared_ptr<CGContext> made(new CGContext(width, height, layout, colorSpace, std::move(memory)));
    made->drawsInPlace_ = true;
    return made;
}

CGContext::CGContext(int width, int height, PixelLayout layout, const CGColorSpace& colorSpace,
                     PixelBuffer pixels)
    : width_(width), height_(height), layout_(layout), colorSpace_(colorSpace), pixels_(std::move(pixels)) {}

void CGContext::saveGState() { saved_.push_back(state_); }

void CGContext::restoreGState() {
    if (saved_.empty()) return;
    state_ = saved_.back();
    saved_.pop_back();
}

void CGContext::translateBy(double x, double y) { concat(CGAffineTransform::translation(x, y)); }

void CGContext::scaleBy(double x, double y) { concat(CGAffineTransform::scale(x, y)); }
void CGContext::rotateBy(double radians) { concat(CGAffineTransform::rotation(radians)); }

void CGContext::concat(const CGAffineTransform& transform) {
    state_.transform = transform.then(state_.transform);
}

void CGContext::setAlpha(double alpha) { state_.alpha = alpha > 0 ? std::min(alpha, 1.0) : 0; }
void CGContext::setBlendMode(CGBlendMode mode) { state_.blendMode = mode; }
void CGContext::setFillColor(const CGColor& color) { state_.fillColor = color; }

void CGContext::setInterpolationQuality(CGInterpolationQuality quality) {
    state_.interpolation =
        quality == CGInterpolationQuality::none ? Interpolation::nearest : Interpolation::smooth;
}

std::optional<CGContext::PixelRect> CGContext::devicePixels(const CGRect& rect) const {
    const CGRect box = state_.transform.apply(rect);
    if (!(box.width() > 0 && box.height() > 0) ||
        !std::isfinite(box.maxX() + box.maxY() + box.minX() + box.minY()))
        return std::nullopt;
    PixelRect pixels{std::round(box.minX()), std::round(height_ - box.maxY()), std::round(box.maxX()),
                     std::round(height_ - box.minY())};
    pixels.x1 = std::max(pixels.x1, pixels.x0 + 1);
    pixels.y1 = std::max(pixels.y1, pixels.y0 + 1);
    const bool visible = pixels.x0 < width_ && pixels.x1 > 0 && pixels.y0 < height_ && pixels.y1 > 0;
    return visible ? std::optional(pixels) : std::nullopt;
}

PixelBuffer CGContext::copiedPixels() const {
    PixelBuffer copy = PixelBuffer::make(pixels_.size());
    if (copy) std::memcpy(copy.data(), pixels_.data(), pixels_.size());
    return copy;
}

bool CGContext::makeWritable() {
    if (drawsInPlace_ || pixels_.isUnique()) return true;
    PixelBuffer copy = copiedPixels();
    if (!copy) return false;
    pixels_ = std::move(copy);
    return true;
}

MutablePixelView CGContext::view() {
    return {pixels_.data(), width_, height_, std::ptrdiff_t{width_} * bytesPerPixel(layout_), layout_};
}

/// Blends a row of premultiplied R G B A pixels at (x, y), which lies inside, in whatever layout the context
/// has; `scratch` has room for as many pixels.
void CGContext::blendRow(const std::uint8_t* premultiplied, int x, int y, int pixels, std::uint8_t* scratch) {
    const auto blend = state_.blendMode == CGBlendMode::copy ? kernels::blendRowCopy : kernels::blendRowOver;
    const int opacity = channelByte(state_.alpha);
    std::uint8_t* row = view().row(y) + std::ptrdiff_t{x} * bytesPerPixel(layout_);
    if (layout_ == PixelLayout::premultipliedLast) {
        blend(premultiplied, row, pixels, opacity);
        return;
    }
    kernels::convertRow(row, layout_, scratch, PixelLayout::premultipliedLast, pixels);
    blend(premultiplied, scratch, pixels, opacity);
    kernels::convertRow(scratch, PixelLayout::premultipliedLast, row, layout_, pixels);
}

/// Calls `rows(begin, end, scratch)` for strips of `height` rows, on all cores, with scratch memory for a
/// row.
template <class Rows>
void CGContext::blendStrips(int height, const Rows& rows) {
    const std::size_t bytes =
        layout_ == PixelLayout::premultipliedLast ? 0 : static_cast<std::size_t>(width_) * 4;
    forEachStrip(height, [&](int begin, int end) {
        const auto scratch = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
        rows(begin, end, scratch.get());
    });
}

/// Does a piece of drawing that gives false, with a reason, when it cannot be done.
template <class Drawing>
void CGContext::attempt(const Drawing& drawing) {
    const ReasonWatch watch;
    if (!absentWithoutMemory(drawing) && watch.hasSeenBreak()) copyReason(lastReason(), failure_);
}

void CGContext::fill(const CGRect& rect) {
    const std::optional<PixelRect> target = devicePixels(rect);
    if (target) attempt([&] { return fillPixels(*target); });
}

bool CGContext::fillPixels(const PixelRect& target) {
    if (!makeWritable()) return false;
    const CGRect visible = target.inside(width_, height_);
    const auto x0 = static_cast<int>(visible.origin.x), y0 = static_cast<int>(visible.origin.y);
    const auto width = static_cast<int>(visible.size.width), height = static_cast<int>(visible.size.height);

    std::array<std::uint8_t, 4> pixel = colorBytes(state_.fillColor, colorSpace_);
    kernels::convertRow(pixel.data(), PixelLayout::straightLast, pixel.data(), PixelLayout::premultipliedLast,
                        1);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(width) * 4);
    for (std::size_t i = 0; i < row.size(); i += 4)
        std::copy(pixel.begin(), pixel.end(), row.begin() + static_cast<std::ptrdiff_t>(i));
    blendStrips(height, [&](int begin, int end, std::uint8_t* scratch) {
        for (int y = begin; y < end; ++y)
            blendRow(row.data(), x0, y0 + y, width, scratch);
    });
    return true;
}

void CGContext::draw(const CGImage& image, const CGRect& rect) {
    const std::optional<PixelRect> target = devicePixels(rect);
    if (!target || channelByte(state_.alpha) == 0) return;
    attempt([&] {
        const std::optional<Orientation> orientation = orientationOf(state_.transform);
        return orientation ? drawUpright(image, *target, *orientation) : drawSlanted(image, rect);
    });
}

/// Scales the visible part in the picture's own orientation, then turns it.
bool CGContext::drawUpright(const CGImage& image, const PixelRect& target, Orientation orientation) {
    const CGSize whole{target.x1 - target.x0, target.y1 - target.y0};
    const CGRect visible = target.inside(width_, height_);
    const CGRect part{{visible.origin.x - target.x0, visible.origin.y - target.y0}, visible.size};
    const CGSize stored = swapsSides(orientation) ? CGSize{whole.height, whole.width} : whole;
    const std::optional<CGImage> scaled =
        scaledPart(image, stored, rectBeforeTurning(part, whole, orientation), state_.interpolation);
    if (!scaled) return false;
    const std::optional<CGImage> converted =
        sameColours(scaled->colorSpace(), colorSpace_)
            ? scaled
            : convertedImage(*scaled, PixelLayout::premultipliedLast, colorSpace_);
    const std::optional<CGImage> turned = converted ? turnedImage(*converted, orientation) : std::nullopt;
    const std::optional<PixelView> pixels = turned ? turned->pixels() : std::nullopt;
    if (!pixels || !makeWritable()) return false;

    const auto x0 = static_cast<int>(visible.origin.x), y0 = static_cast<int>(visible.origin.y);
    const bool converts = pixels->layout != PixelLayout::premultipliedLast;
    blendStrips(pixels->height, [&](int begin, int end, std::uint8_t* scratch) {
        std::vector<std::uint8_t> row(converts ? static_cast<std::size_t>(pixels->width) * 4 : 0);
        for (int y = begin; y < end; ++y) {
            if (converts)
                kernels::convertRow(pixels->row(y), pixels->layout, row.data(),
                                    PixelLayout::premultipliedLast, pixels->width);
            blendRow(converts ? row.data() : pixels->row(y), x0, y0 + y, pixels->width, scratch);
        }
    });
    return true;
}

bool CGContext::drawSlanted(const CGImage& image, const CGRect& rect) {
    const double width = image.width(), height = image.height();
    const CGAffineTransform toPlane =
        CGAffineTransform{rect.width() / width, 0, 0, -rect.height() / height, rect.minX(), rect.maxY()}
            .then(state_.transform)
            .then({1, 0, 0, -1, 0, static_cast<double>(height_)});
    const auto picture = AffinePicture::make(image, toPlane, colorSpace_, state_.interpolation);
    if (!picture || !makeWritable()) return false;
    blendStrips(height_, [&](int begin, int end, std::uint8_t* scratch) {
        std::vector<std::uint8_t> row(static_cast<std::size_t>(width_) * 4);
        for (int y = begin; y < end; ++y) {
            const AffinePicture::Span span = picture->spanOf(y, width_);
            if (span.isEmpty()) continue;
            const int pixels = span.end - span.begin;
            picture->sample(span.begin, y,
                            {row.data(), pixels, 1, width_ * 4, PixelLayout::premultipliedLast});
            blendRow(row.data(), span.begin, y, pixels, scratch);
        }
    });
    return true;
}

std::optional<CGImage> CGContext::makeImage() {
    if (failure_) {
        giveReason(failure_);
        return std::nullopt;
    }
    return CGImage::make(width_, height_, std::ptrdiff_t{width_} * bytesPerPixel(layout_), layout_,
                         colorSpace_, drawsInPlace_ ? copiedPixels() : pixels_);
}

} // namespace pex
