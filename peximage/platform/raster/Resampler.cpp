#include "peximage/platform/raster/Resampler.h"

#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/ResamplerGroup.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>
#include <vector>

namespace pex {
namespace {

bool isStraight(PixelLayout layout) {
    return layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst;
}

bool isSide(int side) { return side >= 1 && side <= Resampler::longestSide; }

/// Groups that are worth another thread: some 20 microseconds of work.
int groupsAtLeast(const ResamplerPlan& plan) {
    const std::size_t work = plan.samplesBytes() * std::max(8, plan.rows.pairs);
    return static_cast<int>(std::max<std::size_t>(1, (std::size_t{1} << 20) / work));
}

} // namespace

std::optional<Resampler> Resampler::make(int fromWidth, int fromHeight, int toWidth, int toHeight,
                                         PixelLayout layout) {
    return make(ResamplerSpan::whole(fromWidth, toWidth), ResamplerSpan::whole(fromHeight, toHeight), layout);
}

std::optional<Resampler> Resampler::make(const ResamplerSpan& columns, const ResamplerSpan& rows,
                                         PixelLayout layout) {
    if (!isSide(columns.from) || !isSide(rows.from) || !isSide(columns.to) || !isSide(rows.to))
        return std::nullopt;
    if (isStraight(layout)) return std::nullopt;
    try {
        auto plan = std::make_shared<const ResamplerPlan>(
            ResamplerPlan{ResamplerAxis::make(columns, ResamplerAxis::Use::columns),
                          ResamplerAxis::make(rows, ResamplerAxis::Use::rows), layout});
        return Resampler(std::move(plan));
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

bool Resampler::resample(PixelView from, MutablePixelView to) const {
    const ResamplerPlan& plan = *plan_;
    if (from.width != plan.columns.from || from.height != plan.rows.from || from.layout != plan.layout ||
        !plan.fits(to))
        return false;
    std::atomic<bool> complete{true};
    const int groups = plan.groupCount(), groupsAtOnce = groupsAtLeast(plan);
    try {
        std::vector<PixelBuffer> buffers(static_cast<std::size_t>(Workers::count()));
        Workers::forEach((groups - 1) / groupsAtOnce + 1, [&](int strip, int slot) {
            PixelBuffer& buffer = buffers[static_cast<std::size_t>(slot)];
            if (!buffer) buffer = PixelBuffer::make(plan.samplesBytes());
            if (!buffer) return complete.store(false);
            auto* samples = reinterpret_cast<std::int16_t*>(buffer.data());
            const int begin = strip * groupsAtOnce, end = std::min(groups, begin + groupsAtOnce);
            for (int i = begin; i < end; ++i) {
                const ResamplerGroup group(plan, i);
                group.weighRows(from, 0, kernels::Sums::wholeWindow, nullptr, samples);
                group.weighColumns(samples, to);
            }
        });
    } catch (const std::bad_alloc&) {
        return false;
    }
    return complete;
}

} // namespace pex
