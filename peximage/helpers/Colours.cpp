#include "peximage/helpers/PexImageHelperColours.h"
#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexContextImage.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/geometry/Truncated.h"
#include "peximage/platform/raster/AreaReduction.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/varda/PexARP.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace pex {
namespace {

/// A context of the size truncated to whole pixels; its user space has the size as given.
std::shared_ptr<CGContext> contextOf(CGSize size) {
    const std::int64_t width = truncated(size.width), height = truncated(size.height);
    if (std::max(width, height) > std::numeric_limits<int>::max()) return nullptr;
    if (!ImageLimits::current().allows(width, height)) return nullptr;
    auto context = CGContext::make(static_cast<int>(width), static_cast<int>(height),
                                   PixelLayout::premultipliedLast, CGColorSpace::deviceRGB());
    if (context)
        context->scaleBy(static_cast<double>(width) / size.width, static_cast<double>(height) / size.height);
    return context;
}

void drawWhole(const NSImage& image, CGSize into) {
    image.draw({{0, 0}, into}, {}, NSCompositingOperation::copy, 1);
}

std::optional<CGImage> inStandardColours(const CGImage& image) {
    if (image.colorSpace().isStandard()) return image;
    const auto layout = image.layout() == PixelLayout::grey ? PixelLayout::skipLast : image.layout();
    return convertedImage(image, layout, CGColorSpace::deviceRGB());
}

/// The squared difference of one channel, rounded to single precision.
float square(double a, double b) { return static_cast<float>((b - a) * (b - a)); }

} // namespace

std::shared_ptr<PexImage> PexImageHelper::resizeImage_v3(const PexImage& image, CGSize size) {
    diagnostics::print("resizeImage_v3");
    const auto context = contextOf(size);
    if (!context) {
        diagnostics::print("resizeImage_v3 failed");
        return nullptr;
    }
    const auto before = NSGraphicsContext::current();
    NSGraphicsContext::setCurrent(std::make_shared<NSGraphicsContext>(context));
    drawWhole(*image.image, size);
    NSGraphicsContext::setCurrent(before);
    const std::optional<CGImage> drawn = context->makeImage();
    const CGSize points = getActualSizeWithoutRetina(size);
    const auto resized = drawn ? NSImage::make(*drawn, points) : NSImage::make(points);
    diagnostics::print("resizeImage_v3 done");
    return PexImage::make(resized, {});
}

std::shared_ptr<PexImage> PexImageHelper::resizeImage_v4(const PexImage& image, CGSize size) {
    diagnostics::print("resizeImage_v4");
    const auto bitmap = image.cgImage ? image.cgImage : image.image->cgImageForProposedRect();
    const auto resized = NSImage::make(size);
    if (bitmap && resized->lockFocus()) {
        NSGraphicsContext::current()->setImageInterpolation(CGInterpolationQuality::medium);
        const CGRect from{0, 0, static_cast<double>(bitmap->width()), static_cast<double>(bitmap->height())};
        image.image->draw({{0, 0}, size}, from, NSCompositingOperation::copy, 1);
        resized->unlockFocus();
    }
    auto result = PexImage::make(resized, {});
    diagnostics::print("resizeImage_v4 done");
    return result;
}

std::shared_ptr<PexImage> PexImageHelper::reduceImageToSize(const std::shared_ptr<PexImage>& image,
                                                            CGSize targetSize) {
    if (!image) return nullptr;
    const auto side = [](double own, double target) {
        return static_cast<double>(std::max(truncated(target), truncated(own * 0.25)));
    };
    const CGSize step{side(image->size.width, targetSize.width), side(image->size.height, targetSize.height)};
    diagnostics::print("res");
    const auto reduced = image->resize({.to = step});
    diagnostics::print("res done");
    const bool reached = step.width <= targetSize.width && step.height <= targetSize.height;
    auto result = !reduced ? image : reached ? reduced : reduceImageToSize(reduced, targetSize);
    diagnostics::print("reduceImageToSize done");
    return result;
}

std::shared_ptr<PexImage> PexImageHelper::reduceImageTo1x1Pixels(const std::shared_ptr<PexImage>& image) {
    constexpr int lastStepFrom = 7;
    const std::optional<CIImage> graph = image ? image->ciImage() : std::nullopt;
    std::optional<CGImage> picture = graph ? graph->getCGImage() : std::nullopt;
    if (!picture) return image;
    const auto quarter = [](int side) { return std::max(1, side / 4); };
    for (bool last = false; !last;) {
        const int width = picture->width(), height = picture->height();
        const auto reduced = areaReduced(*picture, {quarter(width), quarter(height)});
        // Averaged in sRGB, so that the result does not depend on the picture's own colour space.
        const auto standard = reduced ? inStandardColours(*reduced) : std::nullopt;
        if (!standard) break;
        picture = standard;
        last = width <= lastStepFrom && height <= lastStepFrom;
    }
    return PexImage::make(*picture);
}

NSColor PexImageHelper::getAverageColorOfImage(const std::shared_ptr<PexImage>& image) {
    return PexContextImage::make(reduceImageTo1x1Pixels(image), {.size = CGSize{1, 1}})->getPixelColor(0, 0);
}

NSColor PexImageHelper::getColor(const OfImage& pixel) {
    const PexImage& image = pixel.ofImage;
    const std::int64_t width = truncated(image.size.width), height = truncated(image.size.height);
    if (!image.cgImage || pixel.x < 0 || pixel.y < 0 || pixel.x >= width || pixel.y >= height)
        return {0, 0, 0, 0};
    const bool isOwnSize = width == image.cgImage->width() && height == image.cgImage->height();
    if (!isOwnSize)
        return PexContextImage::make(PexImage::make(*image.cgImage), {.size = image.size})
            ->getPixelColor(pixel.x, pixel.y);
    const auto alone =
        image.cgImage->cropping({static_cast<double>(pixel.x), static_cast<double>(pixel.y), 1, 1});
    return alone ? PexContextImage::make(*alone)->getPixelColor(0, 0) : NSColor(0, 0, 0, 0);
}

std::vector<NSColor> PexImageHelper::getColorList(const OfImageReducedToSize& grid) {
    return PexARP::perform([&] {
        std::vector<NSColor> colors;
        const auto reduced = grid.ofImage.resize({.to = grid.reduceToSize});
        if (!reduced) return colors;
        const auto context = PexContextImage::make(reduced);
        const std::int64_t columns = truncated(grid.reduceToSize.width),
                           rows = truncated(grid.reduceToSize.height);
        colors.reserve(static_cast<std::size_t>(columns * rows));
        for (std::int64_t y = 0; y < rows; ++y) {
            for (std::int64_t x = 0; x < columns; ++x)
                colors.push_back(context->getPixelColor(x, y));
        }
        return colors;
    });
}

std::string PexImageHelper::encodeColorList(const std::vector<NSColor>& colors) {
    PexColorList document;
    for (const NSColor& color : colors)
        document.list.emplace_back(color);
    return encode(document);
}

std::optional<std::vector<NSColor>> PexImageHelper::decodeColorList(std::string_view text) {
    const auto document = decode<PexColorList>(text);
    if (!document) return std::nullopt;
    std::vector<NSColor> colors;
    for (const PexColor& color : document->list)
        colors.push_back(color.nsColor());
    return colors;
}

float PexImageHelper::getColorAverage(const NSColor& color) {
    return static_cast<float>((color.redComponent() + color.greenComponent() + color.blueComponent()) / 3);
}

float PexImageHelper::getTwoColorsDistance(const NSColor& a, const NSColor& b) {
    const float red = square(a.redComponent(), b.redComponent());
    const float blue = square(a.blueComponent(), b.blueComponent());
    const float green = square(a.greenComponent(), b.greenComponent());
    return std::sqrt(red + blue + green);
}

float PexImageHelper::getTwoColorListDistance(const std::vector<NSColor>& a, const std::vector<NSColor>& b) {
    const std::size_t pairs = std::min(a.size(), b.size());
    if (pairs == 0) return std::numeric_limits<float>::quiet_NaN();
    float sum = 0;
    for (std::size_t i = 0; i < pairs; ++i)
        sum += getTwoColorsDistance(a[i], b[i]);
    return sum / static_cast<float>(pairs);
}

} // namespace pex
