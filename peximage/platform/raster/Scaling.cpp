#include "peximage/platform/raster/Scaling.h"

#include "peximage/platform/raster/Resampler.h"
#include "peximage/platform/raster/ResamplerStream.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"

#include <cstring>

namespace pex {
namespace {

/// Straight alpha cannot be filtered: colours that do not show would bleed in.
PixelLayout filteredLayout(PixelLayout layout) {
    if (layout == PixelLayout::straightLast) return PixelLayout::premultipliedLast;
    if (layout == PixelLayout::straightFirst) return PixelLayout::premultipliedFirst;
    return layout;
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

std::optional<CGImage> resampled(PixelView from, const CGColorSpace& colorSpace, PixelSize size) {
    const PixelLayout layout = filteredLayout(from.layout);
    std::optional<Canvas> filterable;
    if (layout != from.layout) {
        filterable = Canvas::make({from.width, from.height}, layout);
        if (!filterable) return std::nullopt;
        forEachStrip(from.height, [&](int begin, int end) {
            convertRows(from.part(0, begin, from.width, end - begin),
                        filterable->view.part(0, begin, from.width, end - begin));
        });
        from = filterable->view;
    }
    std::optional<Canvas> canvas = Canvas::make(size, layout);
    const auto resampler = Resampler::make(from.width, from.height, size.width, size.height, layout);
    if (!canvas || !resampler || !resampler->resample(from, canvas->view)) return std::nullopt;
    return canvas->finish(colorSpace);
}

/// Decodes by rows into the resampler: the source is never held as a whole.
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
        reader.read(rows);
        if (layout != stored) convertRows(rows, room);
        if (!stream->commit(room.height)) return std::nullopt;
    }
    return canvas->finish(source.colorSpace());
}

std::optional<CGImage> decodedAt(const PixelSource& source, PixelSize size) {
    std::optional<Canvas> canvas = Canvas::make(size, source.layout());
    if (!canvas) return std::nullopt;
    source.decode(canvas->view);
    return canvas->finish(source.colorSpace());
}

std::optional<CGImage> scaledSource(const PixelSource& source, PixelSize size) {
    const PixelSize decoded = source.reducedSize(size);
    if (decoded != size) {
        if (const auto reader = source.rows(decoded)) return streamed(source, *reader, decoded, size);
    }
    const std::optional<CGImage> whole = decodedAt(source, decoded);
    if (!whole || decoded == size) return whole;
    const std::optional<PixelView> pixels = whole->pixels();
    return pixels ? resampled(*pixels, source.colorSpace(), size) : std::nullopt;
}

std::optional<CGImage> nearestPixels(PixelView from, const CGColorSpace& colorSpace, PixelSize size) {
    std::optional<Canvas> canvas = Canvas::make(size, from.layout);
    if (!canvas) return std::nullopt;
    const int bytes = bytesPerPixel(from.layout);
    const auto below = [](int at, int length, int fromLength) {
        return static_cast<int>((2 * std::int64_t{at} + 1) * fromLength / (2 * std::int64_t{length}));
    };
    forEachStrip(size.height, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const std::uint8_t* row = from.row(below(y, size.height, from.height));
            std::uint8_t* to = canvas->view.row(y);
            for (int x = 0; x < size.width; ++x, to += bytes)
                std::memcpy(to, row + std::ptrdiff_t{below(x, size.width, from.width)} * bytes,
                            static_cast<std::size_t>(bytes));
        }
    });
    return canvas->finish(colorSpace);
}

} // namespace

std::optional<CGImage> scaledImage(const CGImage& image, PixelSize size, Interpolation interpolation) {
    if (size.width < 1 || size.height < 1) return std::nullopt;
    if (size == PixelSize{image.width(), image.height()}) return image;
    if (interpolation == Interpolation::smooth) {
        if (const auto source = image.source()) return scaledSource(*source, size);
    }
    const std::optional<PixelView> pixels = image.pixels();
    if (!pixels) return std::nullopt;
    if (interpolation == Interpolation::nearest) return nearestPixels(*pixels, image.colorSpace(), size);
    return resampled(*pixels, image.colorSpace(), size);
}

} // namespace pex
