#include "peximage/platform/toolkit/NSBitmapImageRep.h"

#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/raster/ColorBytes.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace pex {
namespace {

constexpr double pointsPerInch = 72;

std::optional<double> dotsPerInch(double pixels, double points) {
    const double dpi = pixels / points * pointsPerInch;
    return points > 0 && std::isfinite(dpi) ? std::optional(dpi) : std::nullopt;
}

} // namespace

NSBitmapImageRep::NSBitmapImageRep(const CGImage& image)
    : image_(image), size_{static_cast<double>(image.width()), static_cast<double>(image.height())} {}

bool NSBitmapImageRep::makeWritable() {
    if (written_) return true;
    const std::optional<PixelView> from = image_.pixels();
    if (!from) return false;
    const std::size_t stride = rowBytes();
    PixelBuffer copy = PixelBuffer::make(stride * static_cast<std::size_t>(from->height));
    if (!copy) return false;
    for (int y = 0; y < from->height; ++y)
        std::memcpy(copy.data() + static_cast<std::size_t>(y) * stride, from->row(y), stride);
    written_ = std::move(copy);
    return true;
}

std::size_t NSBitmapImageRep::rowBytes() const {
    return static_cast<std::size_t>(image_.width()) *
           static_cast<std::size_t>(bytesPerPixel(image_.layout()));
}

CGImage NSBitmapImageRep::cgImage() const {
    if (written_) {
        const auto newer =
            CGImage::make(image_.width(), image_.height(), static_cast<std::ptrdiff_t>(rowBytes()),
                          image_.layout(), image_.colorSpace(), std::exchange(written_, {}));
        if (newer) image_ = *newer;
    }
    return image_;
}

void NSBitmapImageRep::setColor(const NSColor& color, int x, int y) {
    if (x < 0 || y < 0 || x >= image_.width() || y >= image_.height() || !makeWritable()) return;
    const std::array<std::uint8_t, 4> pixel = colorBytes(color.cgColor(), image_.colorSpace());
    std::uint8_t* target =
        written_.data() + static_cast<std::size_t>(y) * rowBytes() +
        static_cast<std::size_t>(x) * static_cast<std::size_t>(bytesPerPixel(image_.layout()));
    kernels::convertRow(pixel.data(), PixelLayout::straightLast, target, image_.layout(), 1);
}

std::optional<Data> NSBitmapImageRep::representation(ImageFormat usingType,
                                                     const Properties& properties) const {
    CGImageDestination::Options options;
    options.quality = properties.compressionFactor;
    options.metadata = properties.metadata;
    options.dpiWidth = dotsPerInch(pixelsWide(), size_.width);
    options.dpiHeight = dotsPerInch(pixelsHigh(), size_.height);
    return CGImageDestination::encode(cgImage(), usingType, options);
}

} // namespace pex
