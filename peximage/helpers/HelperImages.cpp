#include "peximage/helpers/PexImageHelperGeometry.h"
#include "peximage/helpers/PexImageHelperSavers.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/filters/CIContext.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"

#include <algorithm>

namespace pex {

std::shared_ptr<PexImage> PexImageHelper::createImage(CGSize withSize) {
    diagnostics::print("createImage (withSize: (" + decimalText(withSize.width) + ", " +
                       decimalText(withSize.height) + "))");
    return PexImage::make(NSImage::make(getActualSizeWithoutRetina(withSize)),
                          {.dontCreateAuxiliaryVars = true});
}

std::shared_ptr<PexImage> PexImageHelper::getFillColorImage(const NSColor& color, CGSize size) {
    auto filled = PexImage::make({.size = size});
    if (!filled->image->lockFocus()) return filled;
    color.drawSwatch({0, 0, size.width, size.height});
    filled->image->unlockFocus();
    return filled;
}

std::shared_ptr<PexImage> PexImageHelper::crop(const PexImage& image, const CGRect& to) {
    const CGSize points = getActualSizeWithoutRetina({to.width(), to.height()});
    const auto cut = NSImage::make(points, image.image->colorSpace());
    if (cut->lockFocus()) {
        image.image->draw({{0, 0}, points}, getActualRectWithRepresentation(image, to),
                          NSCompositingOperation::copy, 1);
        cut->unlockFocus();
    }
    return PexImage::make(cut, {});
}

std::shared_ptr<PexImage> PexImageHelper::cropToPoint(const PexImage& image, CGPoint toPoint, CGSize size) {
    const double x = std::min(image.size.width - size.width, std::max(0.0, toPoint.x - size.width / 2));
    const double y = std::min(image.size.height - size.height, std::max(0.0, toPoint.y - size.height / 2));
    return crop(image, {{x, y}, size});
}

std::shared_ptr<PexImage> PexImageHelper::load(const URL& url) { return PexImage::make(url, {}); }

std::optional<std::pair<int, int>> PexImageHelper::resolution(const URL& of) {
    const std::optional<CGImageSource> source = CGImageSource::make(of);
    if (!source) return std::nullopt;
    return std::pair(source->properties().pixelWidth, source->properties().pixelHeight);
}

std::optional<CGImage> PexImageHelper::ciImageToCGImage(const CIImage& image) {
    static const CIContext context;
    return context.createCGImage(image, image.extent());
}

} // namespace pex
