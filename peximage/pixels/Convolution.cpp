#include "peximage/image/PexImage.h"
#include "peximage/pixels/PexConvolution.h"
#include "peximage/platform/raster/StripImage.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/ConvolveRow.h"

#include <algorithm>
#include <new>

namespace pex {
namespace {

using Weights = std::array<std::int16_t, 9>;
using Background = std::array<std::uint8_t, 4>;

/// Reorders a row of pixels to R G B A. Colours stay as they are stored, premultiplied or not.
void storedColours(const std::uint8_t* from, PixelLayout layout, std::uint8_t* to, int pixels) {
    if (!hasAlpha(layout)) return kernels::convertRow(from, layout, to, PixelLayout::skipLast, pixels);
    const auto stored = isAlphaFirst(layout) ? PixelLayout::straightFirst : PixelLayout::straightLast;
    kernels::convertRow(from, stored, to, PixelLayout::straightLast, pixels);
}

/// Three rows of the picture in R G B A, each between two background pixels.
class RowWindow {
  public:
    RowWindow(const PixelView& from, const Background& background)
        : from_(from), background_(background), rowBytes_((std::size_t(from.width) + 2) * 4) {
        memory_ = PixelBuffer::make(3 * (rowBytes_ + kernels::rowSlack));
    }
    explicit operator bool() const { return bool(memory_); }

    void take(int y) {
        std::uint8_t* row = at(y);
        const auto fill = [&](std::uint8_t* pixel) { std::ranges::copy(background_, pixel); };
        if (y < 0 || y >= from_.height) {
            for (std::size_t i = 0; i < rowBytes_; i += 4)
                fill(row + i);
            return;
        }
        fill(row);
        storedColours(from_.row(y), from_.layout, row + 4, from_.width);
        fill(row + rowBytes_ - 4);
    }
    std::array<const std::uint8_t*, 3> around(int y) const { return {at(y - 1), at(y), at(y + 1)}; }

  private:
    std::uint8_t* at(int y) const {
        return memory_.data() + static_cast<std::size_t>(y + 3) % 3 * (rowBytes_ + kernels::rowSlack);
    }

    PixelView from_;
    Background background_;
    std::size_t rowBytes_;
    PixelBuffer memory_;
};

void convolveStrip(const PixelView& from, const Weights& weights, const Background& background, int begin,
                   const MutablePixelView& to) {
    RowWindow window(from, background);
    if (!window) throw std::bad_alloc();
    window.take(begin - 1);
    window.take(begin);
    for (int i = 0; i < to.height; ++i) {
        window.take(begin + i + 1);
        kernels::convolveRow(window.around(begin + i), weights, to.row(i), to.width);
    }
}

std::optional<CGImage> convolved(const CGImage& image, const Weights& weights, const Background& background) {
    const std::optional<PixelView> from = image.pixels();
    if (!from) return std::nullopt;
    return imageOfStrips({from->width, from->height}, PixelLayout::skipLast, CGColorSpace::deviceRGB(),
                         [&](MutablePixelView strip, int firstRow) {
                             convolveStrip(*from, weights, background, firstRow, strip);
                         });
}

} // namespace

std::shared_ptr<PexImage> PexImage::convolve(const Convolution& how) const {
    Weights weights{};
    Background background{};
    const PexConvolution& given = how.convolution;
    if (!cgImage || given.kernel.size() < weights.size() || given.bgColor.size() < background.size())
        return nullptr;
    std::copy_n(given.kernel.begin(), weights.size(), weights.begin());
    std::copy_n(given.bgColor.begin(), background.size(), background.begin());
    const std::optional<CGImage> result = convolved(*cgImage, weights, background);
    return result ? make(*result) : nullptr;
}

std::shared_ptr<PexImage> PexImage::convolve(const Kernel& how) const {
    const PexConvolution convolution(how.kernel);
    return convolve({.convolution = convolution});
}

} // namespace pex
