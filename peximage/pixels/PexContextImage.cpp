#include "peximage/pixels/PexContextImage.h"

#include "peximage/pixels/DrawnPixels.h"
#include "peximage/platform/geometry/Truncated.h"

#include <utility>

namespace pex {
namespace {

constexpr auto layout = PixelLayout::premultipliedLast;

std::shared_ptr<CGContext> contextOver(const PixelBuffer& bitmap, std::int64_t width, std::int64_t height) {
    if (!bitmap) return nullptr;
    return CGContext::make(static_cast<int>(width), static_cast<int>(height), layout,
                           CGColorSpace::deviceRGB(), bitmap);
}

} // namespace

PexContextImage::PexContextImage(CGSize drawnSize, std::shared_ptr<PexImage> source,
                                 const std::optional<CGImage>& picture)
    : size(drawnSize),
      image(std::move(source)),
      width(truncated(drawnSize.width)),
      height(truncated(drawnSize.height)),
      bitmap(drawnPixels(picture, width, height, layout)),
      context(contextOver(bitmap, width, height)) {}

PexContextImage::PexContextImage(const CGImage& bitmap) : PexContextImage(PexImage::make(bitmap), Size{}) {}

PexContextImage::PexContextImage(const std::shared_ptr<PexImage>& image, const Size& options)
    : PexContextImage(options.size.value_or(image ? image->size : CGSize{}), image,
                      image ? image->cgImage : std::nullopt) {}

PexContextImage::PexContextImage(const OfSize& empty) : PexContextImage(empty.size, nullptr, std::nullopt) {}

PexContextImage::~PexContextImage() = default;

std::shared_ptr<PexContextImage> PexContextImage::make(const CGImage& bitmap) {
    return std::shared_ptr<PexContextImage>(new PexContextImage(bitmap));
}

std::shared_ptr<PexContextImage> PexContextImage::make(std::shared_ptr<PexImage> image, const Size& options) {
    return std::shared_ptr<PexContextImage>(new PexContextImage(std::move(image), options));
}

std::shared_ptr<PexContextImage> PexContextImage::make(std::shared_ptr<PexImage> image) {
    return make(std::move(image), Size{});
}

std::shared_ptr<PexContextImage> PexContextImage::make(const OfSize& empty) {
    return std::shared_ptr<PexContextImage>(new PexContextImage(empty));
}

PexContextImage::Components PexContextImage::getPixelColorComponents(std::int64_t x, std::int64_t y) const {
    if (!bitmap || x < 0 || y < 0 || x >= width || y >= height) return {};
    const std::uint8_t* pixel = bitmap.data() + (x + width * y) * 4;
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
}

NSColor PexContextImage::getPixelColor(std::int64_t x, std::int64_t y) const {
    const auto [r, g, b, a] = getPixelColorComponents(x, y);
    return {r / 255.0, g / 255.0, b / 255.0, a / 255.0};
}

double PexContextImage::getPixelAlpha(std::int64_t x, std::int64_t y) const {
    return getPixelColorComponents(x, y).a / 255.0;
}

} // namespace pex
