#include "peximage/platform/filters/FilteredSource.h"

#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/ConvertedImage.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/Strips.h"
#include "peximage/platform/raster/kernels/ConvertRow.h"
#include "peximage/platform/raster/kernels/ConvolveRow.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>
#include <vector>

namespace pex {
namespace {

class FilteredRows : public RowReader {
  public:
    explicit FilteredRows(const FilteredSource& source) : source_(source) {}

  private:
    std::optional<DecodedRows> readNext(MutablePixelView rows) override {
        if (!source_.make(y_, rows)) return std::nullopt;
        y_ += rows.height;
        return DecodedRows{rows.height};
    }

    FilteredSource source_;
    int y_ = 0;
};

/// Memory of each thread, kept between strips: freed memory is not always used again.
using StripMemory = std::vector<PixelBuffer>;
StripMemory memoryOfEach() { return StripMemory(static_cast<std::size_t>(Workers::mostCount())); }

/// Copies of the rows on both sides of the edges between strips, made before the strips change.
class KeptEdges {
  public:
    KeptEdges(const MutablePixelView& picture, int strip, int reach)
        : strip_(strip),
          reach_(reach),
          rowBytes_(static_cast<std::size_t>(picture.width) * 4),
          copies_(
              PixelBuffer::make(rowBytes_ * static_cast<std::size_t>(picture.height / strip * 2 * reach))) {
        if (!copies_) return;
        for (int edge = strip; edge < picture.height; edge += strip) {
            for (int y = edge - reach; y < std::min(edge + reach, picture.height); ++y)
                std::memcpy(place(y), picture.row(y), rowBytes_);
        }
    }
    explicit operator bool() const { return static_cast<bool>(copies_); }

    /// A row that lies at most the reach away from an edge.
    const std::uint8_t* row(int y) const { return place(y); }

  private:
    std::uint8_t* place(int y) const {
        const int edge = (y + reach_) / strip_; // counted from 1
        const int copy = (edge - 1) * 2 * reach_ + y - (edge * strip_ - reach_);
        return copies_.data() + static_cast<std::size_t>(copy) * rowBytes_;
    }

    int strip_, reach_;
    std::size_t rowBytes_;
    PixelBuffer copies_;
};

} // namespace

FilteredSource::FilteredSource(CGImage picture, FilterChain chain)
    : picture_(std::move(picture)), chain_(std::move(chain)) {
    const bool keepsSpace =
        !chain_.changesColours() && picture_.colorSpace().model() == CGColorSpace::Model::rgb;
    if (keepsSpace || sameColours(picture_.colorSpace(), CGColorSpace::deviceRGB())) return;
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

std::unique_ptr<RowReader> FilteredSource::makeRows(PixelSize) const {
    return std::make_unique<FilteredRows>(*this);
}

std::optional<DecodedRows> FilteredSource::decodeAll(MutablePixelView pixels) const {
    return make(0, pixels) ? std::optional(DecodedRows{pixels.height}) : std::nullopt;
}

bool FilteredSource::make(int y, MutablePixelView rows) const {
    const std::optional<PixelView> from = picture_.pixels();
    if (!from) return false;
    std::atomic<bool> complete{true};
    StripMemory memory = memoryOfEach();
    forEachStripInSlots(rows.height, [&](int begin, int end, int slot) {
        const MutablePixelView strip = rows.part(0, begin, rows.width, end - begin);
        const auto rowAt = [&](int row) { return from->row(row); };
        if (!makeStrip(rowAt, y + begin, strip, memory[static_cast<std::size_t>(slot)])) complete = false;
    });
    return complete;
}

std::optional<CGImage> FilteredSource::render() {
    // An encoded picture is decoded for this result alone, as for scaling.
    if (auto encoded = picture_.source()) picture_ = CGImage::make(std::move(encoded));
    const bool fits = bytesPerPixel(picture_.layout()) == bytesPerPixel(layout());
    if (auto taken = fits ? picture_.takePixels() : std::nullopt) {
        auto& [buffer, pixels] = *taken;
        if (!filterInPlace(pixels)) return std::nullopt;
        return CGImage::make(pixels.width, pixels.height, pixels.bytesPerRow, layout(), colorSpace(),
                             std::move(buffer));
    }
    CGImage result = CGImage::make(std::make_shared<FilteredSource>(*this));
    return result.pixels() ? std::optional(result) : std::nullopt;
}

bool FilteredSource::filterInPlace(MutablePixelView picture) const {
    const int strip = std::max(64, 16 * chain_.reach());
    const KeptEdges edges(picture, strip, chain_.reach());
    if (!edges) return false;
    std::atomic<bool> complete{true};
    StripMemory memory = memoryOfEach();
    const auto makeRows = [&](int begin, int end, int slot) {
        const auto rowAt = [&](int y) { return y >= begin && y < end ? picture.row(y) : edges.row(y); };
        const MutablePixelView rows = picture.part(0, begin, picture.width, end - begin);
        if (!makeStrip(rowAt, begin, rows, memory[static_cast<std::size_t>(slot)])) complete = false;
    };
    forEachStripInSlots(picture.height, makeRows, strip);
    return complete;
}

template <class RowAt>
bool FilteredSource::makeStrip(RowAt rowAt, int y, MutablePixelView to, PixelBuffer& memory) const {
    const auto [width, height] = size();
    const int first = std::max(y - chain_.reach(), 0);
    const int last = std::min(y + to.height + chain_.reach(), height);
    const std::ptrdiff_t stride = std::ptrdiff_t{width} * 4 + std::ptrdiff_t{kernels::rowSlack};
    const std::size_t bytes = static_cast<std::size_t>(stride) * static_cast<std::size_t>(last - first);
    if (memory.size() < bytes) memory = PixelBuffer::make(bytes);
    if (!memory) return false;
    const MutablePixelView window{memory.data(), width, last - first, stride, PixelLayout::premultipliedLast};
    for (int row = first; row < last; ++row)
        load(rowAt(row), window.row(row - first));
    chain_.run(window, first, y, y + to.height, height);
    for (int i = 0; i < to.height; ++i)
        std::memcpy(to.row(i), window.row(y - first + i), static_cast<std::size_t>(width) * 4);
    return true;
}

/// A row of the picture below in the form that the chain works on.
void FilteredSource::load(const std::uint8_t* row, std::uint8_t* to) const {
    constexpr auto worked = PixelLayout::premultipliedLast;
    const PixelLayout layout = picture_.layout();
    const int width = picture_.width();
    if (!convertsColours()) return kernels::convertRow(row, layout, to, worked, width);
    if (layout == PixelLayout::grey) {
        std::fill(to, to + std::ptrdiff_t{width} * 4, std::uint8_t{255});
        return conversion_->convertRow(row, to, width);
    }
    kernels::convertRow(row, layout, to, PixelLayout::straightLast, width);
    conversion_->convertRow(to, to, width);
    kernels::convertRow(to, PixelLayout::straightLast, to, worked, width);
}

} // namespace pex
