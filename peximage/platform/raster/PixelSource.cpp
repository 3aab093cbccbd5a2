#include "peximage/platform/raster/PixelSource.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/WorkState.h"

#include <cstring>

namespace pex {
namespace {

/// Records what was decoded; absent when no row shows anything.
std::optional<DecodedRows> told(const DecodedRows& rows, int height, DecodingRecord& record) {
    record.add({static_cast<double>(rows.shown) / height, rows.isSound});
    if (rows.shown > 0) return rows;
    giveNothingShown();
    return std::nullopt;
}

} // namespace

std::optional<DecodedRows> RowReader::read(MutablePixelView rows) {
    if (failed_) return std::nullopt;
    const auto got = absentWithoutMemory([&] {
        endIfStopped();
        return readNext(rows);
    });
    failed_ = !got;
    if (!got) return std::nullopt;
    asked_ += rows.height;
    shown_ += got->shown;
    isSound_ = isSound_ && got->isSound && shown_ == asked_;
    const bool isLast = asked_ >= height_;
    if (isLast && shown_ == 0) return told({0, false}, height_, *record_);
    if (isLast || !isSound_) record_->add({1 - (asked_ - shown_) / double(height_), isSound_});
    return got;
}

PixelSize PixelSource::reducedSize(PixelSize) const { return size(); }

std::unique_ptr<RowReader> PixelSource::rows(PixelSize size) const {
    auto reader = absentWithoutMemory([&] { return makeRows(size); });
    if (!reader) return nullptr;
    reader->record_ = record_;
    reader->height_ = size.height;
    return reader;
}

std::optional<DecodedRows> PixelSource::decode(MutablePixelView pixels) const {
    const auto got = absentWithoutMemory([&] {
        endIfStopped();
        return decodeAll(pixels);
    });
    return got ? told(*got, pixels.height, *record_) : std::nullopt;
}

std::optional<DecodedRows> PixelSource::decodeAll(MutablePixelView pixels) const {
    const std::unique_ptr<RowReader> reader = makeRows({pixels.width, pixels.height});
    return reader ? reader->readNext(pixels) : DecodedRows{0, false};
}

void giveNothingShown() { giveReason(ReasonCode::damaged, "damaged: nothing of the picture can be shown"); }

void fillMissing(MutablePixelView rows) {
    const int value = hasAlpha(rows.layout) ? 0 : 128;
    const auto bytes =
        static_cast<std::size_t>(rows.width) * static_cast<std::size_t>(bytesPerPixel(rows.layout));
    for (int y = 0; y < rows.height; ++y)
        std::memset(rows.row(y), value, bytes);
}

} // namespace pex
