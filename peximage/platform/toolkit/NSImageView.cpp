#include "peximage/platform/toolkit/NSImageView.h"

#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/RoundedFrame.h"
#include "peximage/platform/toolkit/NSGraphicsContext.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

namespace pex {

std::shared_ptr<NSImageView> NSImageView::make(const CGRect& frame) {
    return std::shared_ptr<NSImageView>(new NSImageView(frame));
}

CGRect NSImageView::frame() const {
    const std::lock_guard lock(mutex_);
    return frame_;
}

void NSImageView::setFrame(const CGRect& frame) {
    const bool resized = frame.size != this->frame().size;
    {
        const std::lock_guard lock(mutex_);
        frame_ = frame;
    }
    if (resized) setNeedsDisplay(frame);
}

std::shared_ptr<NSImage> NSImageView::image() const {
    const std::lock_guard lock(mutex_);
    return image_;
}

void NSImageView::setImage(std::shared_ptr<NSImage> image) {
    {
        const std::lock_guard lock(mutex_);
        image_.swap(image);
    }
    setNeedsDisplay(frame());
}

void NSImageView::setWantsLayer(bool wants) {
    if (wants != wantsLayer()) layer_ = wants ? std::optional(CALayer{}) : std::nullopt;
}

std::optional<CGRect> NSImageView::imageRect() const {
    const std::shared_ptr<NSImage> shown = image();
    const CGSize size = shown ? shown->size() : CGSize{0, 0}, room = frame().size;
    if (!(size.width > 0 && size.height > 0 && room.width > 0 && room.height > 0)) return std::nullopt;
    double scale = std::min(room.width / size.width, room.height / size.height);
    if (imageScaling == ImageScaling::proportionallyDown) scale = std::min(scale, 1.0);
    scale *= magnification;
    const CGSize drawn{size.width * scale, size.height * scale};
    return CGRect{(room.width - drawn.width) / 2 + imageOffset.x,
                  (room.height - drawn.height) / 2 + imageOffset.y, drawn.width, drawn.height};
}

void NSImageView::setNeedsDisplay(const CGRect& rect) {
    std::function<void(const CGRect&)> request;
    {
        const std::lock_guard lock(mutex_);
        request = displayRequest_;
    }
    if (request) request(rect);
}

void NSImageView::setDisplayRequest(std::function<void(const CGRect& rect)> request) {
    const std::lock_guard lock(mutex_);
    displayRequest_.swap(request);
}

void NSImageView::draw(const CGRect&) {
    const auto current = NSGraphicsContext::current();
    if (!current || !current->cgContext()) return;
    const bool framed = layer_ && (layer_->cornerRadius > 0 || layer_->borderWidth > 0);
    if (framed)
        drawFramed(*current->cgContext());
    else
        drawContent(*current->cgContext());
}

void NSImageView::drawInto(const std::shared_ptr<CGContext>& context) {
    if (!context) return;
    const auto before = NSGraphicsContext::current();
    NSGraphicsContext::setCurrent(std::make_shared<NSGraphicsContext>(context));
    draw(bounds());
    NSGraphicsContext::setCurrent(before);
}

void NSImageView::drawContent(CGContext& context) const {
    const std::shared_ptr<NSImage> shown = image();
    const std::optional<CGRect> rect = imageRect();
    const std::optional<CGImage> bitmap = rect ? shown->cgImageForProposedRect(*rect) : std::nullopt;
    if (bitmap) context.draw(*bitmap, *rect);
}

/// Draws into a bitmap of the view's size in pixels first, where the corners can be cut.
void NSImageView::drawFramed(CGContext& context) const {
    const CGRect device = context.transform().apply(bounds());
    const double width = std::round(device.size.width), height = std::round(device.size.height);
    if (!(width >= 1 && height >= 1) || !ImageLimits::current().allows(std::llround(std::min(width, 1e9)),
                                                                       std::llround(std::min(height, 1e9))))
        return;
    const auto pixelsWide = static_cast<int>(width), pixelsHigh = static_cast<int>(height);
    const std::ptrdiff_t rowBytes = std::ptrdiff_t{pixelsWide} * 4;
    PixelBuffer pixels = PixelBuffer::makeZeroed(static_cast<std::size_t>(rowBytes * pixelsHigh));
    const auto own = pixels ? CGContext::make(pixelsWide, pixelsHigh, PixelLayout::premultipliedLast,
                                              context.colorSpace(), pixels)
                            : nullptr;
    if (!own) return;
    const double sx = width / bounds().size.width, sy = height / bounds().size.height;
    own->scaleBy(sx, sy);
    drawContent(*own);
    const double scale = std::min(sx, sy);
    frameRounded({pixels.data(), pixelsWide, pixelsHigh, rowBytes, PixelLayout::premultipliedLast},
                 layer_->cornerRadius * scale, layer_->borderWidth * scale, layer_->borderColor);
    const auto framed = CGImage::make(pixelsWide, pixelsHigh, rowBytes, PixelLayout::premultipliedLast,
                                      context.colorSpace(), pixels);
    if (framed) context.draw(*framed, bounds());
}

} // namespace pex
