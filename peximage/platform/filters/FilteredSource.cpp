#include "peximage/platform/filters/FilteredSource.h"

#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/ConvolveRow.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace pex {
namespace {

class FilteredRows : public RowReader {
  public:
    explicit FilteredRows(const FilteredSource& source) : source_(source) {}

    bool read(MutablePixelView rows) override {
        const bool made = source_.make(y_, rows);
        if (!made) fillMissing(rows);
        y_ += rows.height;
        return made;
    }

  private:
    FilteredSource source_;
    int y_ = 0;
};

} // namespace

FilteredSource::FilteredSource(CGImage picture, FilterChain chain)
    : picture_(std::move(picture)), chain_(std::move(chain)) {
    if (!chain_.changesColours() || sameColours(picture_.colorSpace(), CGColorSpace::deviceRGB())) return;
    const bool grey = picture_.layout() == PixelLayout::grey;
    conversion_ = ColorConversion::make(picture_.colorSpace(),
                                        grey ? ColorConversion::Pixels::gray : ColorConversion::Pixels::rgba,
                                        CGColorSpace::deviceRGB());
}

PixelLayout FilteredSource::layout() const {
    return hasAlpha(picture_.layout()) ? PixelLayout::premultipliedLast : PixelLayout::skipLast;
}

CGColorSpace FilteredSource::colorSpace() const {
    const bool isColour = picture_.colorSpace().model() == CGColorSpace::Model::rgb;
    return isColour && !convertsColours() ? picture_.colorSpace() : CGColorSpace::deviceRGB();
}

std::unique_ptr<RowReader> FilteredSource::rows(PixelSize) const {
    return std::make_unique<FilteredRows>(*this);
}

bool FilteredSource::decode(MutablePixelView pixels) const {
    const bool made = make(0, pixels);
    if (!made) fillMissing(pixels);
    return made;
}

bool FilteredSource::make(int y, MutablePixelView rows) const {
    const std::optional<PixelView> from = picture_.pixels();
    if (!from) return false;
    std::atomic<bool> complete{true};
    forEachStrip(rows.height, [&](int begin, int end) {
        if (!makeStrip(*from, y + begin, rows.part(0, begin, rows.width, end - begin))) complete = false;
    });
    return complete;
}

bool FilteredSource::makeStrip(const PixelView& from, int y, MutablePixelView rows) const {
    const int first = std::max(y - chain_.reach(), 0);
    const int last = std::min(y + rows.height + chain_.reach(), from.height);
    const std::ptrdiff_t stride = std::ptrdiff_t{from.width} * 4 + std::ptrdiff_t{kernels::rowSlack};
    const PixelBuffer memory =
        PixelBuffer::make(static_cast<std::size_t>(stride) * static_cast<std::size_t>(last - first));
    if (!memory) return false;
    const MutablePixelView window{memory.data(), from.width, last - first, stride,
                                  PixelLayout::premultipliedLast};
    load(from, first, window);
    chain_.run(window, first, y, y + rows.height, from.height);
    for (int i = 0; i < rows.height; ++i)
        std::memcpy(rows.row(i), window.row(y - first + i), static_cast<std::size_t>(from.width) * 4);
    return true;
}

/// The picture's rows from `y` on in the form that the chain works on.
void FilteredSource::load(const PixelView& from, int y, MutablePixelView window) const {
    for (int i = 0; i < window.height; ++i) {
        const std::uint8_t* row = from.row(y + i);
        std::uint8_t* to = window.row(i);
        if (!convertsColours()) {
            kernels::convertRow(row, from.layout, to, window.layout, from.width);
            continue;
        }
        if (from.layout == PixelLayout::grey) {
            std::fill(to, to + std::ptrdiff_t{from.width} * 4, std::uint8_t{255});
            conversion_->convertRow(row, to, from.width);
            continue;
        }
        kernels::convertRow(row, from.layout, to, PixelLayout::straightLast, from.width);
        conversion_->convertRow(to, to, from.width);
        kernels::convertRow(to, PixelLayout::straightLast, to, window.layout, from.width);
    }
}

} // namespace pex
