#include "peximage/platform/raster/CGImage.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/raster/PixelSource.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>

namespace pex {
namespace {

std::size_t rowBytes(int width, PixelLayout layout) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(bytesPerPixel(layout));
}

} // namespace

struct CGImage::Store {
    PixelSize size;
    PixelLayout layout;
    CGColorSpace colorSpace;

    LongHeldMutex mutex;                       // held while the pixels are decoded
    std::shared_ptr<const PixelSource> source; // until the pixels are there
    PixelBuffer buffer;
    std::ptrdiff_t bytesPerRow = 0;
    std::shared_ptr<const DecodingRecord> record; // of a source, also afterwards

    PixelSize lastReduced{}; // what the source was last reduced to
    std::optional<CGImage> reduced;

    Store(PixelSize s, PixelLayout l, const CGColorSpace& c) : size(s), layout(l), colorSpace(c) {}

    /// With the lock held.
    void decode() {
        if (!source) return;
        if (const auto met = record->met(); met && met->shown <= 0) return giveNothingShown();
        const std::size_t stride = rowBytes(size.width, layout);
        PixelBuffer fresh = PixelBuffer::make(stride * static_cast<std::size_t>(size.height));
        if (!fresh) return;
        const auto rows = static_cast<std::ptrdiff_t>(stride);
        if (!source->decode({fresh.data(), size.width, size.height, rows, layout})) return;
        const std::shared_ptr<const PixelSource> decoded = source; // freed after the pass was given back
        const ForkPass pass;
        bytesPerRow = rows;
        buffer = std::move(fresh);
        source.reset();
        reduced.reset();
    }

    Completeness completeness() {
        const std::lock_guard lock(mutex);
        if (!record) return {buffer ? 1.0 : 0.0, static_cast<bool>(buffer)};
        if (!record->met()) decode();
        return record->met().value_or(Completeness{0, false});
    }
};

std::optional<CGImage> CGImage::make(int width, int height, std::ptrdiff_t bytesPerRow, PixelLayout layout,
                                     const CGColorSpace& colorSpace, PixelBuffer pixels) {
    if (width < 1 || height < 1 || !pixels) return std::nullopt;
    const std::size_t row = rowBytes(width, layout);
    if (bytesPerRow < 0 || static_cast<std::size_t>(bytesPerRow) < row) return std::nullopt;
    const std::size_t before = static_cast<std::size_t>(bytesPerRow) * static_cast<std::size_t>(height - 1);
    if (pixels.size() < row || pixels.size() - row < before) return std::nullopt;
    auto store = std::make_shared<Store>(PixelSize{width, height}, layout, colorSpace);
    store->buffer = std::move(pixels);
    store->bytesPerRow = bytesPerRow;
    return CGImage(std::move(store), 0, 0, width, height);
}

CGImage CGImage::make(std::shared_ptr<const PixelSource> source) {
    const PixelSize size = source->size();
    auto store = std::make_shared<Store>(size, source->layout(), source->colorSpace());
    store->record = source->record();
    store->source = std::move(source);
    return CGImage(std::move(store), 0, 0, size.width, size.height);
}

PixelLayout CGImage::layout() const { return store_->layout; }
const CGColorSpace& CGImage::colorSpace() const { return store_->colorSpace; }

std::optional<PixelView> CGImage::pixels() const {
    const std::lock_guard lock(store_->mutex);
    store_->decode();
    if (!store_->buffer) return std::nullopt;
    const PixelView whole{store_->buffer.data(), store_->size.width, store_->size.height, store_->bytesPerRow,
                          store_->layout};
    return whole.part(x_, y_, width_, height_);
}

std::optional<std::pair<PixelBuffer, MutablePixelView>> CGImage::takePixels() {
    const bool isAlone = store_.use_count() == 1 && PixelSize{width_, height_} == store_->size;
    if (!isAlone || !pixels() || !store_->buffer.isUnique()) return std::nullopt;
    const MutablePixelView view{store_->buffer.data(), width_, height_, store_->bytesPerRow, store_->layout};
    return std::pair(std::move(store_->buffer), view);
}

bool CGImage::isIncomplete() const { return !store_->completeness().isSound; }
double CGImage::decodedFraction() const { return store_->completeness().shown; }

std::optional<CGImage> CGImage::cropping(const CGRect& rect) const {
    if (rect.isEmpty()) return std::nullopt;
    const CGRect cut =
        rect.integral().intersection({0, 0, static_cast<double>(width_), static_cast<double>(height_)});
    if (cut.isEmpty()) return std::nullopt;
    return CGImage(store_, x_ + static_cast<int>(cut.origin.x), y_ + static_cast<int>(cut.origin.y),
                   static_cast<int>(cut.size.width), static_cast<int>(cut.size.height));
}

std::optional<CGImage> CGImage::reinterpreted(PixelLayout as) const {
    if (bytesPerPixel(as) != bytesPerPixel(layout()) || !pixels()) return std::nullopt;
    auto store = std::make_shared<Store>(store_->size, as, store_->colorSpace);
    store->record = store_->record;
    store->buffer = store_->buffer;
    store->bytesPerRow = store_->bytesPerRow;
    return CGImage(std::move(store), x_, y_, width_, height_);
}

std::shared_ptr<const PixelSource> CGImage::source() const {
    if (PixelSize{width_, height_} != store_->size) return nullptr;
    const std::lock_guard lock(store_->mutex);
    return store_->source;
}

std::optional<CGImage> CGImage::reduction(PixelSize size) const {
    const std::lock_guard lock(store_->mutex);
    return size == store_->lastReduced ? store_->reduced : std::nullopt;
}

void CGImage::offerReduction(const CGImage& made) const {
    const PixelSize size{made.width(), made.height()};
    const bool isSmaller = size.width <= store_->size.width && size.height <= store_->size.height;
    const std::lock_guard lock(store_->mutex);
    store_->reduced.reset();
    if (size == store_->lastReduced && isSmaller && store_->source) store_->reduced = made;
    store_->lastReduced = size;
}

} // namespace pex
