#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexImageBitmapRGBA.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ArgbRow.h"

#include <algorithm>

namespace pex {
namespace {

using kernels::MaskBy;

void maskPixels(std::uint8_t* argb, const std::uint8_t* mask, int maskedPixels, int pixels, MaskBy by) {
    constexpr kernels::Argb transparent{0, 0, 0, 0}, keepColour{0, 255, 255, 255};
    const int masked = mask != nullptr ? std::min(maskedPixels, pixels) : 0;
    if (masked > 0) kernels::maskRow(argb, mask, masked, by);
    kernels::overwriteRow(argb + std::ptrdiff_t{masked} * 4, pixels - masked, transparent, keepColour);
}

/// The image with opacity from a mask. Both are counted from the bottom row, so that they meet there.
std::shared_ptr<PexImage> masked(const PexImage& image, const PexImageBitmapRGBA& mask, MaskBy by) {
    PexImageBitmapRGBA bitmap(image);
    const std::span<std::uint8_t> bytes = bitmap.writableBytes();
    if (bytes.empty() || mask.bytes().empty()) return nullptr;
    const auto width = static_cast<int>(bitmap.width), maskWidth = static_cast<int>(mask.width);
    const std::int64_t higher = mask.height - bitmap.height;
    const auto maskRows = [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const std::int64_t row = y + higher;
            const std::uint8_t* from = row >= 0 ? mask.bytes().data() + row * mask.width * 4 : nullptr;
            maskPixels(bytes.data() + std::ptrdiff_t{y} * width * 4, from, maskWidth, width, by);
        }
    };
    return absentWithoutMemory([&] {
        forEachStrip(static_cast<int>(bitmap.height), maskRows);
        return bitmap.pexImage();
    });
}

} // namespace

std::shared_ptr<PexImage> PexImage::key(const KeyColor& with) const {
    PexImageBitmapRGBA bitmap(*this);
    bitmap.key(with.color.redB255(), with.color.greenB255(), with.color.blueB255(), with.tolerance);
    return bitmap.pexImage();
}

std::shared_ptr<PexImage> PexImage::apply(const BitmapMask& by) {
    const CGSize points = image->size();
    const auto side = [](double length) { return static_cast<int>(std::min(length, 1e9)); };
    if (!(points.width >= 1 && points.height >= 1)) return shared_from_this();
    const auto mask = scaledImage(by.mask, {side(points.width), side(points.height)}, Interpolation::smooth);
    const auto result = mask ? masked(*this, PexImageBitmapRGBA(*mask), MaskBy::luminance) : nullptr;
    return result ? result : shared_from_this();
}

std::shared_ptr<PexImage> PexImage::apply(const ImageMask& by) {
    const auto mask = by.mask ? by.mask->resize({.to = size}) : nullptr;
    if (!mask || !mask->cgImage) return shared_from_this();
    const auto result = masked(*this, PexImageBitmapRGBA(*mask->cgImage), MaskBy::alpha);
    return result ? result : shared_from_this();
}

} // namespace pex
