#include "peximage/platform/raster/CGContext.h"

#include "peximage/platform/raster/ColorConversion.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/BlendRow.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace pex {
namespace {

/// A picture is never stretched to more than this before it is clipped to the context.
constexpr double maxScaledSide = 1 << 17;
constexpr double maxScaledPixels = 1 << 28;

int toByte(double channel) {
    if (!(channel > 0)) return 0;
    return static_cast<int>(std::lround(std::min(channel, 1.0) * 255));
}

} // namespace

/// Whole pixels of the bitmap, row 0 on top; may reach outside it.
struct CGContext::PixelRect {
    double x0, y0, x1, y1;
    bool mirrored, flipped; // the transform turned x or y around

    double width() const { return x1 - x0; }
    double height() const { return y1 - y0; }
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

void CGContext::translateBy(double x, double y) {
    state_.transform = CGAffineTransform::translation(x, y).then(state_.transform);
}

void CGContext::scaleBy(double x, double y) {
    state_.transform = CGAffineTransform::scale(x, y).then(state_.transform);
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
    PixelRect pixels{std::round(box.minX()), std::round(height_ - box.maxY()),
                     std::round(box.maxX()), std::round(height_ - box.minY()),
                     state_.transform.a < 0, state_.transform.d < 0};
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
/// has. `scratch` is the caller's, so that strips can be blended at the same time.
void CGContext::blendRow(const std::uint8_t* premultiplied, int x, int y, int pixels,
                         std::vector<std::uint8_t>& scratch) {
    const auto blend = state_.blendMode == CGBlendMode::copy ? kernels::blendRowCopy : kernels::blendRowOver;
    const int opacity = toByte(state_.alpha);
    std::uint8_t* row = view().row(y) + std::ptrdiff_t{x} * bytesPerPixel(layout_);
    if (layout_ == PixelLayout::premultipliedLast) {
        blend(premultiplied, row, pixels, opacity);
        return;
    }
    scratch.resize(static_cast<std::size_t>(pixels) * 4);
    kernels::convertRow(row, layout_, scratch.data(), PixelLayout::premultipliedLast, pixels);
    blend(premultiplied, scratch.data(), pixels, opacity);
    kernels::convertRow(scratch.data(), PixelLayout::premultipliedLast, row, layout_, pixels);
}

void CGContext::fill(const CGRect& rect) {
    const std::optional<PixelRect> target = devicePixels(rect);
    if (!target || !makeWritable()) return;
    const int x0 = static_cast<int>(std::max(target->x0, 0.0)),
              y0 = static_cast<int>(std::max(target->y0, 0.0));
    const int x1 = static_cast<int>(std::min<double>(target->x1, width_));
    const int y1 = static_cast<int>(std::min<double>(target->y1, height_));

    const CGColor& color = state_.fillColor;
    std::vector<std::uint8_t> row(static_cast<std::size_t>(x1 - x0) * 4);
    for (std::size_t i = 0; i < row.size(); i += 4) {
        row[i] = static_cast<std::uint8_t>(toByte(color.red));
        row[i + 1] = static_cast<std::uint8_t>(toByte(color.green));
        row[i + 2] = static_cast<std::uint8_t>(toByte(color.blue));
        row[i + 3] = static_cast<std::uint8_t>(toByte(color.alpha));
    }
    if (!sameColours(CGColorSpace::sRGB(), colorSpace_)) {
        const auto conversion =
            ColorConversion::make(CGColorSpace::sRGB(), ColorConversion::Pixels::rgba, colorSpace_);
        if (conversion) conversion->convertRow(row.data(), row.data(), x1 - x0);
    }
    kernels::convertRow(row.data(), PixelLayout::straightLast, row.data(), PixelLayout::premultipliedLast,
                        x1 - x0);
    forEachStrip(y1 - y0, [&](int begin, int end) {
        std::vector<std::uint8_t> scratch;
        for (int y = begin; y < end; ++y)
            blendRow(row.data(), x0, y0 + y, x1 - x0, scratch);
    });
}

void CGContext::draw(const CGImage& image, const CGRect& rect) {
    const std::optional<PixelRect> target = devicePixels(rect);
    if (!target || toByte(state_.alpha) == 0) return;
    const bool scales = target->width() != image.width() || target->height() != image.height();
    if (scales && (target->width() > maxScaledSide || target->height() > maxScaledSide ||
                   target->width() * target->height() > maxScaledPixels))
        return;
    const PixelSize size{static_cast<int>(target->width()), static_cast<int>(target->height())};
    const std::optional<CGImage> scaled = scaledImage(image, size, state_.interpolation);
    if (!scaled) return;
    const std::optional<CGImage> picture =
        sameColours(scaled->colorSpace(), colorSpace_)
            ? scaled
            : convertedImage(*scaled, PixelLayout::premultipliedLast, colorSpace_);
    const std::optional<PixelView> pixels = picture ? picture->pixels() : std::nullopt;
    if (pixels && makeWritable()) drawRows(*pixels, *target);
}

/// The picture has the target's size and the context's colours.
void CGContext::drawRows(PixelView picture, const PixelRect& target) {
    const int x0 = static_cast<int>(target.x0), y0 = static_cast<int>(target.y0);
    const int left = std::max(-x0, 0), right = std::min(picture.width, width_ - x0);
    const int top = std::max(-y0, 0), bottom = std::min(picture.height, height_ - y0);
    const int first = target.mirrored ? picture.width - right : left;
    const bool copies = target.mirrored || picture.layout != PixelLayout::premultipliedLast;
    forEachStrip(bottom - top, [&](int begin, int end) {
        std::vector<std::uint32_t> row(copies ? static_cast<std::size_t>(right - left) : 0);
        std::vector<std::uint8_t> scratch;
        for (int y = top + begin; y < top + end; ++y) {
            const std::uint8_t* from = picture.row(target.flipped ? picture.height - 1 - y : y) +
                                       std::ptrdiff_t{first} * bytesPerPixel(picture.layout);
            if (copies) {
                auto* premultiplied = reinterpret_cast<std::uint8_t*>(row.data());
                kernels::convertRow(from, picture.layout, premultiplied, PixelLayout::premultipliedLast,
                                    right - left);
                if (target.mirrored) std::reverse(row.begin(), row.end());
                from = premultiplied;
            }
            blendRow(from, x0 + left, y0 + y, right - left, scratch);
        }
    });
}

std::optional<CGImage> CGContext::makeImage() {
    return CGImage::make(width_, height_, std::ptrdiff_t{width_} * bytesPerPixel(layout_), layout_,
                         colorSpace_, drawsInPlace_ ? copiedPixels() : pixels_);
}

} // namespace pex
