#include "peximage/pixels/PexImageBitmapRGBA.h"

#include "peximage/pixels/DrawnPixels.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/WorkState.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ArgbRow.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/varda/PerfAn.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

namespace pex {
namespace {

using kernels::Argb;

constexpr auto layout = PixelLayout::premultipliedFirst;
constexpr Argb keepNothing{0, 0, 0, 0}, keepAlpha{255, 0, 0, 0}, keepColour{0, 255, 255, 255};
constexpr Argb opaqueBlack{255, 0, 0, 0};

Argb argbOf(const PexColor& color) {
    return {color.alphaB255(), color.redB255(), color.greenB255(), color.blueB255()};
}

/// The sum of channels that a gate compares with, limited to one above the largest sum. Absent for a
/// threshold that is not a number.
std::optional<int> gateLimit(double threshold) {
    const double limit = threshold * 255 * 3;
    if (std::isnan(limit)) return std::nullopt;
    return static_cast<int>(std::clamp(limit, -1.0, 766.0));
}

/// The largest squared distance of two colours whose root is at most the tolerance; -1 if there is none.
int largestSquareWithin(double tolerance) {
    constexpr int largest = 3 * 255 * 255;
    if (!(tolerance >= 0)) return -1;
    // Squaring the tolerance rounds, so the exact limit is found by taking roots.
    int square = static_cast<int>(std::min<double>(tolerance * tolerance, largest));
    while (square < largest && std::sqrt(square + 1) <= tolerance)
        ++square;
    while (std::sqrt(square) > tolerance)
        --square;
    return square;
}

/// Edits are quick and are not stopped: nothing else would tell a half-edited bitmap from a whole one.
void forWholeBitmap(int height, const std::function<void(int begin, int end)>& edit) {
    const SharedWork unstopped(nullptr);
    forEachStrip(height, edit);
}

struct Range {
    std::int64_t begin, end;
};

/// The part of begin … begin + length that lies inside 0 … limit.
Range clipped(std::int64_t begin, std::int64_t length, std::int64_t limit) {
    if (length <= 0 || begin >= limit) return {0, 0};
    if (begin < 0) return {0, std::min(limit, begin + length)};
    return {begin, begin + std::min(length, limit - begin)};
}

} // namespace

PexImageBitmapRGBA::PexImageBitmapRGBA(std::int64_t w, std::int64_t h, bool fillBlack) : width(w), height(h) {
    diagnostics::print("PexImageBitmapRGBA.init (width: " + std::to_string(w) +
                       ", height: " + std::to_string(h) + ", fillBlack: " + (fillBlack ? "true" : "false"));
    bytes_ = blankPixels(w, h);
    if (fillBlack) fillAlpha();
}

PexImageBitmapRGBA::PexImageBitmapRGBA(Size size, const std::optional<CGImage>& picture)
    : width(size.width), height(size.height), bytes_(drawnPixels(picture, width, height, layout)) {}

PexImageBitmapRGBA::PexImageBitmapRGBA(const CGImage& image)
    : PexImageBitmapRGBA(Size(image.width(), image.height()), image) {}

PexImageBitmapRGBA::PexImageBitmapRGBA(const PexImage& image)
    : PexImageBitmapRGBA(Size(image.size), image.cgImage) {}

PexImageBitmapRGBA::PexImageBitmapRGBA(const PexContextImage& image)
    : width(truncated(image.size.width)),
      height(truncated(image.size.height)),
      bytes_(blankPixels(width, height)) {
    if (!bytes_ || !image.bitmap) return;
    const std::int64_t columns = std::min(width, image.width), rows = std::min(height, image.height);
    forWholeBitmap(static_cast<int>(rows), [&](int begin, int end) {
        for (int y = begin; y < end; ++y) // the bytes stay as they are, only their order changes
            kernels::convertRow(image.bitmap.data() + y * image.width * 4, PixelLayout::straightLast,
                                bytes_.data() + (height - 1 - y) * width * 4, PixelLayout::straightFirst,
                                static_cast<int>(columns));
    });
}

std::optional<CGImage> PexImageBitmapRGBA::cgImage() const {
    constexpr int largest = std::numeric_limits<int>::max();
    if (width > largest || height > largest) return std::nullopt;
    return CGImage::make(static_cast<int>(width), static_cast<int>(height), width * 4, layout,
                         CGColorSpace::deviceRGB(), bytes_);
}

std::shared_ptr<PexImage> PexImageBitmapRGBA::pexImage() const {
    const std::optional<CGImage> image = cgImage();
    return image ? PexImage::make(*image) : nullptr;
}

std::span<std::uint8_t> PexImageBitmapRGBA::writableBytes() {
    if (!bytes_.isUnique()) {
        if (!bytes_) return {};
        PixelBuffer copy = PixelBuffer::make(bytes_.size());
        if (!copy) return {};
        std::memcpy(copy.data(), bytes_.data(), bytes_.size());
        bytes_ = std::move(copy);
    }
    return {bytes_.data(), bytes_.size()};
}

std::optional<std::size_t> PexImageBitmapRGBA::offsetOf(std::int64_t x, std::int64_t y,
                                                        bool invertedY) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return std::nullopt;
    const std::int64_t row = invertedY ? height - 1 - y : y;
    const auto pixels = static_cast<std::int64_t>(bytes_.size() / 4);
    // The caller may have set sides larger than the buffer.
    if (x >= pixels || row > (pixels - 1 - x) / width) return std::nullopt;
    return static_cast<std::size_t>(row * width + x) * 4;
}

PexColor255 PexImageBitmapRGBA::pixelAt(std::int64_t x, std::int64_t y, bool invertedY) const {
    const std::optional<std::size_t> offset = offsetOf(x, y, invertedY);
    if (!offset) return {};
    const std::uint8_t* pixel = bytes_.data() + *offset;
    return {pixel[1], pixel[2], pixel[3], pixel[0]};
}

std::uint8_t PexImageBitmapRGBA::getPixelAlpha(std::int64_t x, std::int64_t y, bool invertedY) const {
    return pixelAt(x, y, invertedY).a;
}

PexColor PexImageBitmapRGBA::getPixelColor(std::int64_t x, std::int64_t y, bool invertedY) const {
    const PexColor255 pixel = pixelAt(x, y, invertedY);
    return PexColor({.intRed = pixel.r, .green = pixel.g, .blue = pixel.b, .alpha = 255});
}

std::uint8_t PexImageBitmapRGBA::getPixelLuminance(std::int64_t x, std::int64_t y, bool invertedY) const {
    const PexColor255 pixel = pixelAt(x, y, invertedY);
    return static_cast<std::uint8_t>((pixel.r + pixel.g + pixel.b) / 3);
}

PexColor255 PexImageBitmapRGBA::getPixelPexColor255(std::int64_t x, std::int64_t y, bool invertedY) const {
    return pixelAt(x, y, invertedY);
}

void PexImageBitmapRGBA::setPixel(const PixelChannels& pixel) {
    const std::optional<std::size_t> offset = offsetOf(pixel.x, pixel.y, pixel.invertedY);
    const std::span<std::uint8_t> to = offset ? writableBytes() : std::span<std::uint8_t>();
    if (to.empty()) return;
    std::ranges::copy(Argb{pixel.a, pixel.r, pixel.g, pixel.b},
                      to.begin() + static_cast<std::ptrdiff_t>(*offset));
}

void PexImageBitmapRGBA::setPixel(const PixelColor& pixel) {
    setPixel(PixelColor255{pixel.x, pixel.y, PexColor255(pixel.color), pixel.invertedY});
}

void PexImageBitmapRGBA::setPixel(const PixelColor255& pixel) {
    const PexColor255& c = pixel.color;
    setPixel(PixelChannels{pixel.x, pixel.y, c.r, c.g, c.b, c.a, pixel.invertedY});
}

void PexImageBitmapRGBA::setPixelAlpha(const PixelAlpha& pixel) {
    const std::optional<std::size_t> offset = offsetOf(pixel.x, pixel.y, pixel.invertedY);
    const std::span<std::uint8_t> to = offset ? writableBytes() : std::span<std::uint8_t>();
    if (!to.empty()) to[*offset] = pixel.alpha;
}

/// Calls `edit(argb, pixels)` for stretches that together are the whole buffer, on all cores.
template <class Edit>
void PexImageBitmapRGBA::editRuns(Edit edit) {
    constexpr std::size_t runPixels = 4096;
    const std::span<std::uint8_t> to = writableBytes();
    const std::size_t pixels = to.size() / 4;
    const std::size_t runs = (pixels + runPixels - 1) / runPixels;
    forWholeBitmap(static_cast<int>(runs), [&](int begin, int end) {
        const std::size_t first = static_cast<std::size_t>(begin) * runPixels;
        const std::size_t last = std::min(pixels, static_cast<std::size_t>(end) * runPixels);
        edit(to.data() + first * 4, static_cast<int>(last - first));
    });
}

void PexImageBitmapRGBA::fill(std::uint8_t colorRed, std::uint8_t green, std::uint8_t blue) {
    const Argb pixel{0, colorRed, green, blue};
    editRuns([&](std::uint8_t* argb, int pixels) { kernels::overwriteRow(argb, pixels, pixel, keepAlpha); });
}

void PexImageBitmapRGBA::fillAlpha() {
    editRuns(
        [](std::uint8_t* argb, int pixels) { kernels::overwriteRow(argb, pixels, opaqueBlack, keepColour); });
}

void PexImageBitmapRGBA::fillRect(const Rect& rect, const PexColor& toColor, bool invertedY) {
    PerfAn::start("PexImageBitmap.fillRect ()");
    const Range columns = clipped(rect.origin.x, rect.size.width, width);
    const Range rows = clipped(rect.origin.y, rect.size.height, height);
    const std::span<std::uint8_t> to = writableBytes();
    const bool fits = width > 0 && height > 0 && static_cast<std::uint64_t>(width) <= to.size() / 4 / height;
    if (fits && columns.begin < columns.end && rows.begin < rows.end) {
        const Argb pixel = argbOf(toColor);
        const std::int64_t top = invertedY ? height - rows.end : rows.begin;
        forWholeBitmap(static_cast<int>(rows.end - rows.begin), [&](int begin, int end) {
            for (std::int64_t row = top + begin; row < top + end; ++row)
                kernels::overwriteRow(to.data() + (row * width + columns.begin) * 4,
                                      static_cast<int>(columns.end - columns.begin), pixel, keepNothing);
        });
    }
    PerfAn::end();
}

void PexImageBitmapRGBA::fillTransparentPixelWithColor(const PexColor& color) {
    const Argb pixel = argbOf(color);
    editRuns([&](std::uint8_t* argb, int pixels) { kernels::fillTransparentRow(argb, pixels, pixel); });
}

void PexImageBitmapRGBA::gate(kernels::Gate which, double threshold) {
    const std::optional<int> limit = gateLimit(threshold);
    if (!limit) return;
    editRuns([&](std::uint8_t* argb, int pixels) { kernels::gateRow(argb, pixels, which, *limit); });
}

void PexImageBitmapRGBA::lightGate(double threshold) { gate(kernels::Gate::darkToBlack, threshold); }
void PexImageBitmapRGBA::darkGate(double threshold) { gate(kernels::Gate::lightToWhite, threshold); }
void PexImageBitmapRGBA::lightDarkGate(double threshold) { gate(kernels::Gate::toEither, threshold); }

void PexImageBitmapRGBA::key(std::uint8_t colorRed, std::uint8_t green, std::uint8_t blue, double tolerance) {
    const Argb colour{0, colorRed, green, blue};
    const int largestSquare = largestSquareWithin(tolerance);
    if (largestSquare < 0) return;
    editRuns([&](std::uint8_t* argb, int pixels) { kernels::keyRow(argb, pixels, colour, largestSquare); });
}

} // namespace pex
