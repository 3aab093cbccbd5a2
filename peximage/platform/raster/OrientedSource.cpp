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
        : stored_(std::move(stored)), orientation_(orientation) {}

    TurnedPicture picture() const { return {stored_, orientation_}; }

    PixelSize size() const override { return turned(stored_->size()); }
    PixelLayout layout() const override { return stored_->layout(); }
    CGColorSpace colorSpace() const override { return stored_->colorSpace(); }
    /// The first upright row may need the last stored one.
    std::unique_ptr<RowReader> rows(PixelSize) const override { return nullptr; }

    bool decode(MutablePixelView upright) const override {
        const PixelSize size = turned({upright.width, upright.height});
        if (const std::unique_ptr<RowReader> reader = stored_->rows(size))
            return turnStrips(*reader, size, upright);

        const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(upright.layout);
        const PixelBuffer whole =
            PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(size.height));
        if (!whole) {
            fillMissing(upright);
            return false;
        }
        const MutablePixelView pixels{whole.data(), size.width, size.height, stride, upright.layout};
        const bool complete = stored_->decode(pixels);
        kernels::orientRows(pixels, 0, orientation_, upright);
        return complete;
    }

  private:
    PixelSize turned(PixelSize size) const {
        return swapsSides(orientation_) ? PixelSize{size.height, size.width} : size;
    }

    bool turnStrips(RowReader& reader, PixelSize size, MutablePixelView upright) const {
        constexpr int stripRows = 64;
        const std::ptrdiff_t stride = std::ptrdiff_t{size.width} * bytesPerPixel(upright.layout);
        const PixelBuffer strip = PixelBuffer::make(static_cast<std::size_t>(stride) * stripRows);
        if (!strip) {
            fillMissing(upright);
            return false;
        }
        bool complete = true;
        for (int y = 0; y < size.height; y += stripRows) {
            const int rows = std::min(stripRows, size.height - y);
            const MutablePixelView pixels{strip.data(), size.width, rows, stride, upright.layout};
            complete = reader.read(pixels) && complete;
            kernels::orientRows(pixels, y, orientation_, upright);
        }
        return complete;
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
