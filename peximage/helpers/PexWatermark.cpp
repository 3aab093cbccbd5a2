#include "peximage/helpers/PexWatermark.h"

#include "peximage/image/PexImage.h"
#include "peximage/platform/varda/Draw.h"

#include <algorithm>

namespace pex {
namespace {

/// The watermark's lower left corner; `room` is the image's size minus the watermark's.
CGPoint originOf(PexWatermark::Position position, CGSize room) {
    // The positions run from left to right, row by row from the top.
    const auto index = static_cast<int>(position);
    const int column = index % 3, row = index / 3;
    return {room.width * column / 2, room.height * (2 - row) / 2};
}

} // namespace

CGSize PexWatermark::Scale::scaleOf(const PexImage& watermarkImage, const PexImage& whenAppliedTo) const {
    const CGSize own = watermarkImage.size, base = whenAppliedTo.size;
    if (policy == Policy::largestSideScale)
        return own * (scale * std::min(base.width / own.width, base.height / own.height));
    return own * std::min({base.width * maxScale / own.width, base.height * maxScale / own.height, 1.0});
}

std::shared_ptr<PexImage> PexImage::watermark(const std::shared_ptr<PexImage>& with,
                                              const PexWatermark& settings) const {
    if (!with) return nullptr;
    const CGSize scaled = settings.scale.scaleOf(*with, *this);
    const auto mark = with->resize({.to = scaled});
    const auto marked = NSImage::make(size, image->colorSpace());
    if (!mark || !Draw::start(marked)) return nullptr;
    Draw::copybits({.srcImage = image, .dstRect = CGRect{{0, 0}, size}});
    Draw::copybits(
        {.srcImage = mark->image,
         .dstPoint = originOf(settings.position, {size.width - scaled.width, size.height - scaled.height}),
         .opacity = settings.opacity});
    Draw::end();
    return make(marked, {});
}

} // namespace pex
