#include "peximage/platform/toolkit/NSImage.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/raster/OrientedSource.h"
#include "peximage/platform/toolkit/NSScreen.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>

namespace pex {
namespace {

constexpr double pointsPerInch = 72;

CGSize pointSize(const CGImage& upright, const ImageProperties& properties) {
    double dpiX = properties.dpiWidth.value_or(pointsPerInch),
           dpiY = properties.dpiHeight.value_or(pointsPerInch);
    if (swapsSides(properties.orientation)) std::swap(dpiX, dpiY);
    return {upright.width() * pointsPerInch / dpiX, upright.height() * pointsPerInch / dpiY};
}

/// A context of so many pixels; null when the limits do not allow it or memory cannot be had.
std::shared_ptr<CGContext> contextOf(double width, double height, const CGColorSpace& colorSpace) {
    constexpr double maxSide = 1e9;
    if (!(width >= 1 && width < maxSide && height >= 1 && height < maxSide)) return nullptr;
    const auto pixelsWide = static_cast<int>(width), pixelsHigh = static_cast<int>(height);
    if (!ImageLimits::current().allows(pixelsWide, pixelsHigh)) return nullptr;
    return CGContext::make(pixelsWide, pixelsHigh, PixelLayout::premultipliedLast, colorSpace);
}

struct ImageFolders {
    ForkSafeMutex mutex;
    std::vector<URL> folders;
};

ImageFolders& imageFolders() {
    static auto& instance = *new ImageFolders; // never freed: work goes on while the process ends
    return instance;
}

std::shared_ptr<NSImage> namedInFolder(const URL& folder, std::string_view name) {
    if (auto image = NSImage::make(folder.appendingPathComponent(name))) return image;
    for (const ImageFormatNames& format : imageFormats) {
        for (const std::string_view extension : format.extensions) {
            const std::string file = std::string(name) + '.' + std::string(extension);
            if (auto image = NSImage::make(folder.appendingPathComponent(file))) return image;
        }
    }
    return nullptr;
}

} // namespace

std::shared_ptr<NSImage> NSImage::make(const Data& bytes) {
    const std::optional<CGImageSource> source = CGImageSource::make(bytes);
    std::optional<CGImage> image = source ? source->createImage() : std::nullopt;
    if (!image) return nullptr;
    const ImageProperties& properties = source->properties();
    if (properties.orientation != Orientation::up)
        image = CGImage::make(makeUpright(image->source(), properties.orientation));
    return make(*image, pointSize(*image, properties));
}

std::shared_ptr<NSImage> NSImage::make(const URL& file) {
    const std::optional<Data> bytes = Data::contentsOf(file, ImageLimits::current().maxSourceBytes);
    return bytes ? make(*bytes) : nullptr;
}

std::shared_ptr<NSImage> NSImage::make(const CGImage& image, CGSize sizeInPoints) {
    std::shared_ptr<NSImage> made(new NSImage(sizeInPoints));
    made->bitmap_ = image;
    return made;
}

std::shared_ptr<NSImage> NSImage::make(CGSize sizeInPoints, const CGColorSpace& colorSpace) {
    return std::shared_ptr<NSImage>(new NSImage(sizeInPoints, colorSpace));
}

std::shared_ptr<NSImage> NSImage::make(CGSize sizeInPoints, Representations representations) {
    std::shared_ptr<NSImage> made(new NSImage(sizeInPoints));
    made->representations_ = std::move(representations);
    return made;
}

std::shared_ptr<NSImage> NSImage::named(std::string_view name) {
    if (name.empty() || name.find('/') != std::string_view::npos || name.find('\0') != std::string_view::npos)
        return nullptr;
    std::vector<URL> folders;
    {
        const std::lock_guard lock(imageFolders().mutex);
        folders = imageFolders().folders;
    }
    // NOLINTNEXTLINE: clang 14 has no reversed views
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        if (auto image = namedInFolder(*folder, name)) return image;
    }
    return nullptr;
}

void NSImage::registerImageFolder(const URL& folder) {
    const std::lock_guard lock(imageFolders().mutex);
    imageFolders().folders.push_back(folder);
}

std::optional<CGImage> NSImage::cgImageForProposedRect(const std::optional<CGRect>& rect) const {
    if (bitmap_) return bitmap_;
    const auto best = bestRepresentation({.forRect = rect.value_or(CGRect{{0, 0}, size_})});
    return best ? std::optional(best->image) : std::nullopt;
}

std::optional<NSImageRep> NSImage::bestRepresentation(const ForRect& rect) const {
    if (bitmap_) return NSImageRep{*bitmap_, size_};
    return representations_ ? representations_(rect.forRect.size) : std::nullopt;
}

CGColorSpace NSImage::colorSpace() const {
    const std::optional<CGImage> bitmap = cgImageForProposedRect();
    const CGColorSpace space = bitmap ? bitmap->colorSpace() : blankSpace_;
    return space.model() == CGColorSpace::Model::rgb ? space : CGColorSpace::deviceRGB();
}

std::shared_ptr<NSImage> NSImage::rotate(double by) const {
    const std::optional<CGImage> bitmap = cgImageForProposedRect();
    if (!bitmap || !(size_.width > 0 && size_.height > 0) || !std::isfinite(by)) return nullptr;
    const CGAffineTransform turn = CGAffineTransform::rotationByDegrees(by);
    const CGRect box = turn.apply(CGRect{{0, 0}, size_});
    const double pixelsPerPoint = std::max(bitmap->width() / size_.width, bitmap->height() / size_.height);
    constexpr double roundingSlack = 1e-6;
    const double width = std::ceil(box.size.width * pixelsPerPoint - roundingSlack);
    const double height = std::ceil(box.size.height * pixelsPerPoint - roundingSlack);
    const auto context = contextOf(width, height, colorSpace());
    if (!context) return nullptr;
    context->translateBy(width / 2, height / 2);
    context->scaleBy(pixelsPerPoint, pixelsPerPoint);
    context->concat(turn);
    context->draw(*bitmap, {{-size_.width / 2, -size_.height / 2}, size_});
    const std::optional<CGImage> turned = context->makeImage();
    return turned ? make(*turned, {width / pixelsPerPoint, height / pixelsPerPoint}) : nullptr;
}

bool NSImage::lockFocus() {
    const double scale = NSScreen::largestBackingScaleFactor();
    const double width = std::round(size_.width * scale), height = std::round(size_.height * scale);
    if (focus_) return false;
    focus_ = contextOf(width, height, colorSpace());
    if (!focus_) return false;
    if (const auto bitmap = cgImageForProposedRect()) focus_->draw(*bitmap, {0, 0, width, height});
    focus_->scaleBy(width / size_.width, height / size_.height);
    contextBefore_ = NSGraphicsContext::current();
    NSGraphicsContext::setCurrent(std::make_shared<NSGraphicsContext>(focus_));
    return true;
}

void NSImage::unlockFocus() {
    if (!focus_) return;
    bitmap_ = focus_->makeImage();
    focus_.reset();
    NSGraphicsContext::setCurrent(std::exchange(contextBefore_, nullptr));
}

/// The whole pixels nearest to a rectangle of points inside the image, y downward; at least one.
CGRect NSImage::pixelsBelow(const CGImage& bitmap, const CGRect& points) const {
    const double px = bitmap.width() / size_.width, py = bitmap.height() / size_.height;
    const double x0 = std::round(points.minX() * px), x1 = std::round(points.maxX() * px);
    const double y0 = std::round((size_.height - points.maxY()) * py),
                 y1 = std::round((size_.height - points.minY()) * py);
    return {x0, y0, std::max(x1 - x0, 1.0), std::max(y1 - y0, 1.0)};
}

void NSImage::draw(const CGRect& rect, const CGRect& fromRect, NSCompositingOperation operation,
                   double fraction) const {
    const auto current = NSGraphicsContext::current();
    const std::optional<CGImage> bitmap = cgImageForProposedRect();
    if (!current || !bitmap || !(size_.width > 0 && size_.height > 0)) return;
    const CGRect whole{0, 0, size_.width, size_.height};
    const CGRect asked = fromRect.isEmpty() ? whole : fromRect;
    const CGRect from = asked.intersection(whole);
    if (from.isEmpty()) return;

    // The part of `rect` for what lies inside the image.
    const double sx = rect.size.width / asked.size.width, sy = rect.size.height / asked.size.height;
    const CGRect into{rect.origin.x + (from.origin.x - asked.origin.x) * sx,
                      rect.origin.y + (from.origin.y - asked.origin.y) * sy, from.size.width * sx,
                      from.size.height * sy};

    const std::optional<CGImage> part = bitmap->cropping(pixelsBelow(*bitmap, from));
    if (!part) return;
    CGContext& context = *current->cgContext();
    context.saveGState();
    context.setAlpha(fraction);
    context.setBlendMode(operation == NSCompositingOperation::copy ? CGBlendMode::copy : CGBlendMode::normal);
    context.draw(*part, into);
    context.restoreGState();
}

} // namespace pex
