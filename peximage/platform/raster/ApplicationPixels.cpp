#include "peximage/platform/raster/ApplicationPixels.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/raster/StripImage.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace pex {
namespace {

/// The image layout with the same bytes, or the one that becomes so by swapping bytes.
PixelLayout layoutFor(PixelBytes bytes, bool isPremultiplied) {
    switch (bytes) {
    case PixelBytes::grey:
        return PixelLayout::grey;
    case PixelBytes::rgba:
    case PixelBytes::bgra:
        return isPremultiplied ? PixelLayout::premultipliedLast : PixelLayout::straightLast;
    case PixelBytes::argb:
        return isPremultiplied ? PixelLayout::premultipliedFirst : PixelLayout::straightFirst;
    default:
        return PixelLayout::skipLast;
    }
}

/// Whether images hold these bytes as they are.
bool isLayout(PixelBytes bytes) {
    return bytes == PixelBytes::grey || bytes == PixelBytes::rgba || bytes == PixelBytes::argb ||
           bytes == PixelBytes::rgbx;
}

bool blueFirst(PixelBytes bytes) {
    return bytes == PixelBytes::bgr || bytes == PixelBytes::bgra || bytes == PixelBytes::bgrx;
}

/// R G B A (or x) to or from the application's order, `fromStep` and `toStep` bytes a pixel.
template <int fromStep, int toStep, bool swaps>
void reorder(const std::uint8_t* from, std::uint8_t* to, int pixels) {
    constexpr int red = swaps ? 2 : 0;
    for (int i = 0; i < pixels; ++i, from += fromStep, to += toStep) {
        to[0] = from[red];
        to[1] = from[1];
        to[2] = from[2 - red];
        if constexpr (toStep == 4) to[3] = fromStep == 4 ? from[3] : 255;
    }
}

void toApplication(const std::uint8_t* rgba, PixelBytes bytes, std::uint8_t* to, int pixels) {
    if (byteCount(bytes) == 4) return reorder<4, 4, true>(rgba, to, pixels);
    blueFirst(bytes) ? reorder<4, 3, true>(rgba, to, pixels) : reorder<4, 3, false>(rgba, to, pixels);
}

void fromApplication(const std::uint8_t* from, PixelBytes bytes, std::uint8_t* rgba, int pixels) {
    if (byteCount(bytes) == 4) return reorder<4, 4, true>(from, rgba, pixels);
    blueFirst(bytes) ? reorder<3, 4, true>(from, rgba, pixels) : reorder<3, 4, false>(from, rgba, pixels);
}

template <class Byte>
bool isSound(const BasicApplicationPixels<Byte>& pixels) {
    const bool sound = pixels.data != nullptr && pixels.width >= 1 && pixels.height >= 1 &&
                       pixels.bytesPerRow / byteCount(pixels.bytes) >= pixels.width;
    if (!sound) giveReason(ReasonCode::badArgument, "the memory is no picture");
    return sound;
}

void copyRows(PixelView from, const ApplicationPixels& to, int begin, int end) {
    const PixelLayout layout = layoutFor(to.bytes, to.isPremultiplied);
    std::vector<std::uint8_t> row(isLayout(to.bytes) ? 0 : static_cast<std::size_t>(to.width) * 4);
    for (int y = begin; y < end; ++y) {
        std::uint8_t* target = to.data + y * to.bytesPerRow;
        kernels::convertRow(from.row(y), from.layout, row.empty() ? target : row.data(), layout, to.width);
        if (!row.empty()) toApplication(row.data(), to.bytes, target, to.width);
    }
}

} // namespace

bool copyPixels(const CGImage& image, const ApplicationPixels& to) {
    if (!isSound(to)) return false;
    if (to.width != image.width() || to.height != image.height()) {
        giveReason(ReasonCode::badArgument, "the memory has another size than the picture");
        return false;
    }
    const std::optional<PixelView> from = image.pixels();
    return from && absentWithoutMemory([&] {
               forEachStrip(to.height, [&](int begin, int end) { copyRows(*from, to, begin, end); });
               return true;
           });
}

std::optional<CGImage> imageOfCopied(const ConstApplicationPixels& pixels, const CGColorSpace& colorSpace) {
    if (!isSound(pixels)) return std::nullopt;
    const PixelLayout layout = layoutFor(pixels.bytes, pixels.isPremultiplied);
    const auto fill = [&](MutablePixelView strip, int firstRow) {
        for (int y = 0; y < strip.height; ++y) {
            const std::uint8_t* from = pixels.data + (firstRow + y) * pixels.bytesPerRow;
            if (isLayout(pixels.bytes))
                std::copy_n(from, strip.bytesPerRow, strip.row(y));
            else
                fromApplication(from, pixels.bytes, strip.row(y), pixels.width);
        }
    };
    return imageOfStrips({pixels.width, pixels.height}, layout, colorSpace, fill);
}

std::optional<CGImage> imageOfShared(const ConstApplicationPixels& pixels, std::function<void()> release,
                                     const CGColorSpace& colorSpace) {
    if (!isSound(pixels) || !isLayout(pixels.bytes)) {
        release();
        return std::nullopt;
    }
    const std::size_t bytes =
        static_cast<std::size_t>(pixels.bytesPerRow) * static_cast<std::size_t>(pixels.height - 1) +
        static_cast<std::size_t>(pixels.width) * static_cast<std::size_t>(byteCount(pixels.bytes));
    return CGImage::make(pixels.width, pixels.height, pixels.bytesPerRow,
                         layoutFor(pixels.bytes, pixels.isPremultiplied), colorSpace,
                         PixelBuffer::adopt(pixels.data, bytes, std::move(release)));
}

} // namespace pex
