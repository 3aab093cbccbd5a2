#include "peximage/platform/raster/AreaReduction.h"

#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/Scaling.h"
#include "peximage/platform/raster/StripImage.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace pex {
namespace {

/// Calls `add(sample, share)` for the samples that part `index` of `count` equal parts covers, with their
/// shares in its mean.
template <class Add>
void forEachCovered(int samples, int count, int index, Add add) {
    const double width = static_cast<double>(samples) / count, begin = index * width, end = begin + width;
    const int last = std::min(samples, static_cast<int>(std::ceil(end - 1e-9)));
    for (int sample = static_cast<int>(begin + 1e-9); sample < last; ++sample) {
        const double covered = std::min(end, sample + 1.0) - std::max(begin, 1.0 * sample);
        add(sample, static_cast<float>(covered / width));
    }
}

void meanOfRows(PixelView from, int rows, int row, std::vector<float>& sums) {
    std::ranges::fill(sums, 0.0F);
    forEachCovered(from.height, rows, row, [&](int y, float share) {
        const std::uint8_t* bytes = from.row(y);
        for (std::size_t i = 0; i < sums.size(); ++i)
            sums[i] += share * static_cast<float>(bytes[i]);
    });
}

void meanOfColumns(const std::vector<float>& sums, PixelView from, MutablePixelView to, int row) {
    const int channels = bytesPerPixel(from.layout);
    std::uint8_t* out = to.row(row);
    for (int x = 0; x < to.width; ++x) {
        for (int c = 0; c < channels; ++c) {
            float mean = 0;
            forEachCovered(from.width, to.width, x, [&](int column, float share) {
                mean += share * sums[static_cast<std::size_t>(column * channels + c)];
            });
            *out++ = static_cast<std::uint8_t>(std::min(mean + 0.5F, 255.0F));
        }
    }
}

/// Decodes an encoded image, no larger than needed.
std::optional<CGImage> decodedFor(const CGImage& image, PixelSize size) {
    const auto source = image.source();
    const std::optional<CGImage> decoded =
        source ? scaledImage(image, source->reducedSize(size), Interpolation::smooth) : image;
    if (!decoded || !hasAlpha(decoded->layout())) return decoded;
    return convertedImage(*decoded, PixelLayout::premultipliedLast, decoded->colorSpace());
}

} // namespace

std::optional<CGImage> areaReduced(const CGImage& image, PixelSize size) {
    if (size.width < 1 || size.height < 1 || size.width > image.width() || size.height > image.height())
        return std::nullopt;
    const std::optional<CGImage> decoded = decodedFor(image, size);
    const std::optional<PixelView> from = decoded ? decoded->pixels() : std::nullopt;
    if (!from) return std::nullopt;
    const auto fill = [&](MutablePixelView strip, int firstRow) {
        std::vector<float> sums(static_cast<std::size_t>(from->width) *
                                static_cast<std::size_t>(bytesPerPixel(from->layout)));
        for (int y = 0; y < strip.height; ++y) {
            meanOfRows(*from, size.height, firstRow + y, sums);
            meanOfColumns(sums, *from, strip, y);
        }
    };
    return imageOfStrips(size, from->layout, decoded->colorSpace(), fill);
}

} // namespace pex
