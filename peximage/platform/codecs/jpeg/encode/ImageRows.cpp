#include "peximage/platform/codecs/jpeg/encode/ImageRows.h"

#include "peximage/platform/raster/PixelSource.h"
#include "peximage/platform/raster/kernels/FlattenRow.h"

#include <memory>
#include <utility>

namespace pex {
namespace {

/// The rows of a picture that is decoded while it is encoded: never more than a strip of them.
class DecodedStrips {
  public:
    DecodedStrips(std::shared_ptr<const PixelSource> source, std::unique_ptr<RowReader> rows)
        : source_(std::move(source)), rows_(std::move(rows)) {}

    /// The next rows, or the first ones again.
    bool load(int top, int end) {
        if (top == 0 && strip_.height > 0) rows_ = source_->rows(source_->size());
        if (!rows_ || !makeRoom(end - top)) return false;
        top_ = top;
        return rows_->read(strip_.part(0, 0, strip_.width, end - top)).has_value();
    }
    const std::uint8_t* row(int y) const { return strip_.row(y - top_); }

  private:
    bool makeRoom(int rows) {
        if (rows <= strip_.height) return true;
        const int width = source_->size().width;
        const std::ptrdiff_t stride = std::ptrdiff_t{width} * bytesPerPixel(source_->layout());
        memory_ = PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows));
        strip_ = {memory_.data(), width, rows, stride, source_->layout()};
        return static_cast<bool>(memory_);
    }

    std::shared_ptr<const PixelSource> source_;
    std::unique_ptr<RowReader> rows_;
    PixelBuffer memory_;
    MutablePixelView strip_{};
    int top_ = 0;
};

/// Null when the picture is in memory, cannot be decoded by rows, or was decoded before: whoever needs its
/// pixels a second time may need them often, so they are kept then.
std::shared_ptr<DecodedStrips> stripsOf(const CGImage& image) {
    const std::shared_ptr<const PixelSource> source = image.source();
    if (!source || source->record()->met()) return nullptr;
    std::unique_ptr<RowReader> rows = source->rows(source->size());
    return rows ? std::make_shared<DecodedStrips>(source, std::move(rows)) : nullptr;
}

/// `row` gives rows of a layout in place.
template <class Row>
std::function<const std::uint8_t*(int y, std::uint8_t* scratch)> encodable(PixelLayout layout, int width,
                                                                           const Row& row) {
    if (layout == PixelLayout::grey || layout == PixelLayout::skipLast)
        return [row](int y, std::uint8_t*) { return row(y); };
    return [row, layout, width](int y, std::uint8_t* scratch) -> const std::uint8_t* {
        kernels::flattenRow(row(y), layout, scratch, width);
        return scratch;
    };
}

} // namespace

bool jpeg::takeRows(const CGImage& image, jpeg::EncoderInput& input) {
    if (const auto strips = stripsOf(image)) {
        input.row = encodable(image.layout(), input.width, [strips](int y) { return strips->row(y); });
        input.load = [strips](int top, int end) { return strips->load(top, end); };
        return true;
    }
    const std::optional<PixelView> pixels = image.pixels();
    if (pixels)
        input.row =
            encodable(image.layout(), input.width, [image, view = *pixels](int y) { return view.row(y); });
    return pixels.has_value();
}

} // namespace pex
