#include "peximage/platform/raster/Scaling.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/raster/OrientedSource.h"
#include "peximage/platform/raster/Resampler.h"
#include "peximage/platform/raster/ResamplerAxis.h"
#include "peximage/platform/raster/ResamplerStream.h"
#include "peximage/platform/raster/StripImage.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/OrientRows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace pex {
namespace {

/// The layout to filter in. Straight alpha cannot be filtered, since invisible colours would bleed in.
/// Bitmaps with alpha first may hold colours above their alpha; converting limits these.
PixelLayout filteredLayout(PixelLayout layout) {
    return hasAlpha(layout) ? PixelLayout::premultipliedLast : layout;
}

/// A picture that is being made.
struct Canvas {
    PixelBuffer buffer;
    MutablePixelView view;

    static std::optional<Canvas> make(PixelSize size, PixelLayout layout) {
        const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(layout);
        PixelBuffer buffer =
            PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height));
        if (!buffer) return std::nullopt;
        const MutablePixelView view{buffer.data(), size.width, size.height, stride, layout};
        return Canvas{std::move(buffer), view};
    }

    std::optional<CGImage> finish(const CGColorSpace& colorSpace) {
        return CGImage::make(view.width, view.height, view.bytesPerRow, view.layout, colorSpace,
                             std::move(buffer));
    }
};

void convertRows(PixelView from, MutablePixelView to) {
    for (int y = 0; y < from.height; ++y)
        kernels::convertRow(from.row(y), from.layout, to.row(y), to.layout, from.width);
}

/// A stretch of a larger result along one axis, and the source sample at which its `from` begins.
struct Stretch {
    ResamplerSpan span;
    int source = 0;

    static Stretch whole(int from, int to) { return {ResamplerSpan::whole(from, to), 0}; }

    /// `count` samples from `first` on, of a source of `length` stretched to `whole`.
    static Stretch part(int length, double whole, double first, int count) {
        const double step = length / whole;
        const double reach = ResamplerAxis::lobes * std::max(step, 1.0) + 2;
        const int begin = static_cast<int>(std::clamp(first * step - reach, 0.0, length - 1.0)) / 2 * 2;
        const int end =
            static_cast<int>(std::clamp((first + count) * step + reach, begin + 1.0, 1.0 * length));
        return {{end - begin, count, first * step - begin, step}, begin};
    }
};

/// Converts and resamples strip by strip, so that the source is not held in both layouts.
bool resampleConverted(const Resampler& resampler, PixelView from, MutablePixelView to) {
    auto stream = ResamplerStream::make(resampler, to);
    if (!stream) return false;
    for (int y = 0; stream->rowsLeft() > 0;) {
        const MutablePixelView room = stream->room();
        const auto convert = [&](int begin, int end) {
            convertRows(from.part(0, y + begin, from.width, end - begin),
                        room.part(0, begin, from.width, end - begin));
        };
        const bool isConverted = absentWithoutMemory([&] {
            forEachStrip(room.height, convert, 16);
            return true;
        });
        y += room.height;
        if (!isConverted || !stream->commit(room.height)) return false;
    }
    return true;
}

std::optional<CGImage> resampled(PixelView from, const CGColorSpace& colorSpace, const Stretch& columns,
                                 const Stretch& rows) {
    from = from.part(columns.source, rows.source, columns.span.from, rows.span.from);
    const PixelLayout layout = filteredLayout(from.layout);
    std::optional<Canvas> canvas = Canvas::make({columns.span.to, rows.span.to}, layout);
    const auto resampler = Resampler::make(columns.span, rows.span, layout);
    if (!canvas || !resampler) return std::nullopt;
    const bool done = layout == from.layout ? resampler->resample(from, canvas->view)
                                            : resampleConverted(*resampler, from, canvas->view);
    return done ? canvas->finish(colorSpace) : std::nullopt;
}

std::optional<CGImage> resampled(PixelView from, const CGColorSpace& colorSpace, PixelSize size) {
    return resampled(from, colorSpace, Stretch::whole(from.width, size.width),
                     Stretch::whole(from.height, size.height));
}

/// Decodes row by row into the resampler, so that the source is never held as a whole.
std::optional<CGImage> streamed(const PixelSource& source, RowReader& reader, PixelSize decoded,
                                PixelSize size) {
    const PixelLayout stored = source.layout(), layout = filteredLayout(stored);
    std::optional<Canvas> canvas = Canvas::make(size, layout);
    const auto resampler = Resampler::make(decoded.width, decoded.height, size.width, size.height, layout);
    if (!canvas || !resampler) return std::nullopt;
    auto stream = ResamplerStream::make(*resampler, canvas->view);
    if (!stream) return std::nullopt;
    while (stream->rowsLeft() > 0) {
        const MutablePixelView room = stream->room();
        MutablePixelView rows = room;
        rows.layout = stored;
        if (!reader.read(rows)) return std::nullopt;
        if (layout != stored) convertRows(rows, room);
        if (!stream->commit(room.height)) return std::nullopt;
    }
    return canvas->finish(source.colorSpace());
}

std::optional<CGImage> decodedAt(const PixelSource& source, PixelSize size) {
    std::optional<Canvas> canvas = Canvas::make(size, source.layout());
    if (!canvas || !source.decode(canvas->view)) return std::nullopt;
    return canvas->finish(source.colorSpace());
}

std::optional<CGImage> scaledSource(const PixelSource& source, PixelSize size);

/// Scales the stored picture and turns only the result, so that it too is decoded row by row.
std::optional<CGImage> scaledTurned(const TurnedPicture& picture, PixelSize size) {
    const bool swaps = swapsSides(picture.orientation);
    const auto scaled = scaledSource(*picture.stored, swaps ? PixelSize{size.height, size.width} : size);
    const std::optional<PixelView> pixels = scaled ? scaled->pixels() : std::nullopt;
    std::optional<Canvas> upright = pixels ? Canvas::make(size, pixels->layout) : std::nullopt;
    if (!upright) return std::nullopt;
    kernels::orientRows(*pixels, 0, picture.orientation, upright->view);
    return upright->finish(scaled->colorSpace());
}

std::optional<CGImage> scaledSource(const PixelSource& source, PixelSize size) {
    if (const auto picture = turnedPicture(source)) return scaledTurned(*picture, size);
    const PixelSize decoded = source.reducedSize(size);
    if (decoded != size) {
        if (const auto reader = source.rows(decoded)) return streamed(source, *reader, decoded, size);
    }
    std::optional<CGImage> whole = decodedAt(source, decoded);
    if (!whole || decoded == size) return whole;
    const std::optional<PixelView> pixels = whole->pixels();
    return pixels ? resampled(*pixels, source.colorSpace(), size) : std::nullopt;
}

/// The same, and offers the result to be kept for the next request.
std::optional<CGImage> reducedOf(const CGImage& image, const PixelSource& source, PixelSize size) {
    if (auto kept = image.reduction(size)) return kept;
    std::optional<CGImage> made = scaledSource(source, size);
    if (made) image.offerReduction(*made);
    return made;
}

/// The source samples below the centres of `count` result samples from `first` on.
std::vector<int> samplesBelow(int length, double whole, double first, int count) {
    std::vector<int> below(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double at = std::floor((first + i + 0.5) * length / whole);
        below[static_cast<std::size_t>(i)] = static_cast<int>(std::clamp(at, 0.0, length - 1.0));
    }
    return below;
}

std::optional<CGImage> nearestPixels(PixelView from, const CGColorSpace& colorSpace, CGSize whole,
                                     const CGRect& part) {
    const PixelSize size{static_cast<int>(part.size.width), static_cast<int>(part.size.height)};
    const auto bytes = static_cast<std::size_t>(bytesPerPixel(from.layout));
    const std::vector<int> columns = samplesBelow(from.width, whole.width, part.origin.x, size.width);
    const std::vector<int> rows = samplesBelow(from.height, whole.height, part.origin.y, size.height);
    return imageOfStrips(size, from.layout, colorSpace, [&](MutablePixelView strip, int firstRow) {
        for (int y = 0; y < strip.height; ++y) {
            const std::uint8_t* row = from.row(rows[static_cast<std::size_t>(firstRow + y)]);
            std::uint8_t* to = strip.row(y);
            for (const int column : columns) {
                std::memcpy(to, row + static_cast<std::size_t>(column) * bytes, bytes);
                to += bytes;
            }
        }
    });
}

CGSize sizeOf(const CGImage& image) {
    return {static_cast<double>(image.width()), static_cast<double>(image.height())};
}

} // namespace

std::optional<CGImage> scaledImage(const CGImage& image, PixelSize size, Interpolation interpolation) {
    if (size.width < 1 || size.height < 1) return std::nullopt;
    if (size == PixelSize{image.width(), image.height()}) return image;
    if (interpolation == Interpolation::smooth) {
        if (const auto source = image.source()) return reducedOf(image, *source, size);
    }
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return std::nullopt;
    if (interpolation == Interpolation::nearest) {
        const CGSize whole{static_cast<double>(size.width), static_cast<double>(size.height)};
        return nearestPixels(*pixels, image.colorSpace(), whole, {{0, 0}, whole});
    }
    return resampled(*pixels, image.colorSpace(), size);
}

std::optional<CGImage> scaledPart(const CGImage& image, CGSize whole, const CGRect& part,
                                  Interpolation interpolation) {
    const CGSize own = sizeOf(image);
    if (whole == own) return image.cropping(part);
    const PixelSize size{static_cast<int>(part.size.width), static_cast<int>(part.size.height)};
    const bool reduces = whole.width <= own.width && whole.height <= own.height;
    if (part == CGRect{{0, 0}, whole} || (reduces && image.source())) {
        const PixelSize wholeSize{static_cast<int>(whole.width), static_cast<int>(whole.height)};
        const std::optional<CGImage> scaled = scaledImage(image, wholeSize, interpolation);
        return scaled ? scaled->cropping(part) : std::nullopt;
    }
    const std::optional<PixelView> from = image.pixels();
    if (!from) return std::nullopt;
    if (interpolation == Interpolation::nearest) return nearestPixels(*from, image.colorSpace(), whole, part);
    return resampled(*from, image.colorSpace(),
                     Stretch::part(from->width, whole.width, part.origin.x, size.width),
                     Stretch::part(from->height, whole.height, part.origin.y, size.height));
}

} // namespace pex
