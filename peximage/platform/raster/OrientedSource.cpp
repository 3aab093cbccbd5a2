#include "peximage/platform/raster/OrientedSource.h"

#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/kernels/OrientRows.h"

#include <algorithm>
#include <utility>

namespace pex {
namespace {

class OrientedSource final : public PixelSource {
  public:
    OrientedSource(std::shared_ptr<const PixelSource> stored, Orientation orientation)
        : PixelSource(stored->record()), stored_(std::move(stored)), orientation_(orientation) {}

    TurnedPicture picture() const { return {stored_, orientation_}; }

    PixelSize size() const override { return turned(stored_->size()); }
    PixelLayout layout() const override { return stored_->layout(); }
    CGColorSpace colorSpace() const override { return stored_->colorSpace(); }

  private:
    /// No rows: the first upright row may need the last stored one.
    std::unique_ptr<RowReader> makeRows(PixelSize) const override { return nullptr; }

    std::optional<DecodedRows> decodeAll(MutablePixelView upright) const override {
        const PixelSize size = turned({upright.width, upright.height});
        if (const std::unique_ptr<RowReader> reader = stored_->rows(size))
            return turnStrips(*reader, size, upright);

        const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(upright.layout);
        const PixelBuffer whole =
            PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height));
        if (!whole) return std::nullopt;
        const MutablePixelView pixels{whole.data(), size.width, size.height, stride, upright.layout};
        const auto stored = stored_->decode(pixels);
        if (!stored) return std::nullopt;
        kernels::orientRows(pixels, 0, orientation_, upright);
        return turnedRows(*stored, size.height, upright.height);
    }

    PixelSize turned(PixelSize size) const {
        return swapsSides(orientation_) ? PixelSize{size.height, size.width} : size;
    }

    std::optional<DecodedRows> turnStrips(RowReader& reader, PixelSize size, MutablePixelView upright) const {
        constexpr int stripRows = 64;
        const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(upright.layout);
        const PixelBuffer strip = PixelBuffer::make(static_cast<std::size_t>(stride) * stripRows);
        if (!strip) return std::nullopt;
        DecodedRows stored;
        for (int y = 0; y < size.height; y += stripRows) {
            const int rows = std::min(stripRows, size.height - y);
            const MutablePixelView pixels{strip.data(), size.width, rows, stride, upright.layout};
            const auto got = reader.read(pixels);
            if (!got) return std::nullopt;
            stored.shown += got->shown;
            stored.isSound = stored.isSound && got->isSound;
            kernels::orientRows(pixels, y, orientation_, upright);
        }
        return turnedRows(stored, size.height, upright.height);
    }

    /// Missing stored rows may be columns of the upright picture: they are counted by their area.
    static DecodedRows turnedRows(const DecodedRows& stored, int storedHeight, int height) {
        const std::int64_t shown = std::int64_t{stored.shown} * height / storedHeight;
        return {static_cast<int>(std::max<std::int64_t>(shown, stored.shown > 0)), stored.isSound};
    }

    std::shared_ptr<const PixelSource> stored_;
    Orientation orientation_;
};

} // namespace

std::shared_ptr<const PixelSource> makeUpright(std::shared_ptr<const PixelSource> stored,
                                               Orientation orientation) {
    if (!stored || orientation == Orientation::up) return stored;
    return std::make_shared<OrientedSource>(std::move(stored), orientation);
}

std::optional<TurnedPicture> turnedPicture(const PixelSource& source) {
    const auto* const oriented = dynamic_cast<const OrientedSource*>(&source);
    return oriented ? std::optional(oriented->picture()) : std::nullopt;
}

} // namespace pex
