#include "peximage/platform/raster/PixelSource.h"

#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/WorkState.h"
#include "peximage/platform/raster/DecodingLimits.h"

#include <algorithm>
#include <chrono>
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

using Clock = WorkState::Clock;

/// When a decoding that has taken so much time already has to be done.
Clock::time_point endOfDecoding(Clock::duration taken) {
    constexpr double longest = 1e6; // what is more sets no limit
    const double seconds = decodingLimits::seconds();
    if (seconds >= longest) return Clock::time_point::max();
    const std::chrono::duration<double> allowed(std::max(seconds, 0.0));
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(allowed) - taken;
}

/// Gives what `work` gives, or nothing, with the reason, when the time for this picture is over.
template <class Work>
std::optional<DecodedRows> withinTime(Clock::duration& taken, const Work& work) {
    const Clock::time_point begin = Clock::now(), end = endOfDecoding(taken);
    const std::shared_ptr<const WorkState> outer = currentWork();
    const auto got = absentWithoutMemory([&] {
        const std::stop_token stop = outer ? outer->stop : std::stop_token();
        const SharedWork limited(
            std::make_shared<const WorkState>(WorkState{stop, outer ? std::min(outer->end, end) : end}));
        endIfStopped();
        return work();
    });
    taken += Clock::now() - begin;
    if (!got && lastReason().code == ReasonCode::cancelled && !isWorkStopped())
        giveReason(ReasonCode::timedOut, "decoding took longer than the limit of " +
                                             decimalText(decodingLimits::seconds()) + " seconds");
    return got;
}

} // namespace

std::optional<DecodedRows> RowReader::read(MutablePixelView rows) {
    if (failed_) return std::nullopt;
    const auto got = withinTime(taken_, [&] { return readNext(rows); });
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
    Clock::duration taken{};
    const auto got = withinTime(taken, [&] { return decodeAll(pixels); });
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
