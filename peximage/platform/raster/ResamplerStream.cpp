#include "peximage/platform/raster/ResamplerStream.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/ResamplerGroup.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>

namespace pex {
namespace {

/// Even, since rows count in pairs; enough groups for all cores, and still in the cache.
constexpr int mostStripRows = 64;

} // namespace

ResamplerStream::ResamplerStream(std::shared_ptr<const ResamplerPlan> plan, MutablePixelView to)
    : plan_(std::move(plan)),
      to_(to),
      bytesPerRow_(static_cast<std::ptrdiff_t>((plan_->sourceRowBytes() + 63) / 64 * 64)) {
    strip_ =
        PixelBuffer::make(static_cast<std::size_t>(bytesPerRow_) * std::min(mostStripRows, plan_->rows.from));
}

std::optional<ResamplerStream> ResamplerStream::make(const Resampler& resampler, MutablePixelView to) {
    if (!resampler.plan_->fits(to)) return std::nullopt;
    ResamplerStream stream(resampler.plan_, to);
    if (!stream.strip_) return std::nullopt;
    return stream;
}

int ResamplerStream::rowsLeft() const { return plan_->rows.from - before_ - inStrip_; }

/// Of whole pairs of rows, which may begin a row before the source.
int ResamplerStream::stripRows() const { return mostStripRows - (before_ == 0 ? plan_->rows.lead : 0); }

MutablePixelView ResamplerStream::room() const {
    return {strip_.data() + inStrip_ * bytesPerRow_, plan_->columns.from,
            std::min(rowsLeft(), stripRows() - inStrip_), bytesPerRow_, plan_->layout};
}

int ResamplerStream::rowsDone() const { return std::min(plan_->rows.to, nextGroup_ * plan_->rowsInGroup()); }

bool ResamplerStream::commit(int rows) {
    inStrip_ += std::clamp(rows, 0, room().height);
    if (inStrip_ < stripRows() && rowsLeft() > 0) return !failed_;
    failed_ = failed_ || !absentWithoutMemory([&] { return work(); });
    before_ += inStrip_;
    inStrip_ = 0;
    return !failed_;
}

/// Adds the strip to every group that it reaches; those whose last row it has are complete then.
bool ResamplerStream::work() {
    const int end = before_ + inStrip_;
    const int begun = static_cast<int>(sums_.size());
    if (!reachGroups(end)) return false;
    std::atomic<bool> complete{true};
    std::vector<PixelBuffer> buffers(static_cast<std::size_t>(Workers::mostCount()));
    Workers::forEach(static_cast<int>(sums_.size()), [&](int place, int slot) {
        PixelBuffer& buffer = buffers[static_cast<std::size_t>(slot)];
        if (!buffer) buffer = PixelBuffer::make(plan_->samplesBytes());
        if (!buffer) return complete.store(false);
        workOnGroup(place, begun, reinterpret_cast<std::int16_t*>(buffer.data()));
    });
    closeGroups(end);
    return complete;
}

/// Provides sums for the groups that begin in the strip and go on after it.
bool ResamplerStream::reachGroups(int end) {
    const int groupCount = plan_->groupCount();
    for (int index = nextGroup_ + static_cast<int>(sums_.size()); index < groupCount; ++index) {
        const ResamplerGroup group(*plan_, index);
        if (group.firstSource() >= end) break;
        PixelBuffer sums;
        if (group.endSource() > end) {
            if (spareSums_.empty()) spareSums_.push_back(PixelBuffer::make(plan_->sumsBytes()));
            sums = std::move(spareSums_.back());
            spareSums_.pop_back();
            if (!sums) return false;
        }
        sums_.push_back(std::move(sums));
    }
    return true;
}

/// `begun` groups have sums from earlier strips.
void ResamplerStream::workOnGroup(int place, int begun, std::int16_t* samples) const {
    ResamplerGroup group(*plan_, nextGroup_ + place);
    const bool ends = group.endSource() <= before_ + inStrip_;
    const auto how = place < begun ? (ends ? kernels::Sums::finish : kernels::Sums::resume)
                                   : (ends ? kernels::Sums::wholeWindow : kernels::Sums::begin);
    const PixelView strip{strip_.data(), plan_->columns.from, inStrip_, bytesPerRow_, plan_->layout};
    group.take(strip, before_);
    group.weighRows({0, plan_->columnBytes()}, how, reinterpret_cast<std::int32_t*>(sums_[place].data()),
                    samples);
    if (ends) group.weighColumns(samples, to_);
}

void ResamplerStream::closeGroups(int end) {
    while (!sums_.empty() && ResamplerGroup(*plan_, nextGroup_).endSource() <= end) {
        if (sums_.front()) spareSums_.push_back(std::move(sums_.front()));
        sums_.pop_front();
        ++nextGroup_;
    }
}

} // namespace pex
