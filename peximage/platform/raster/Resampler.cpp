#include "peximage/platform/raster/Resampler.h"

#include "peximage/platform/foundation/OutOfMemory.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/ResamplerGroup.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

namespace pex {
namespace {

bool isStraight(PixelLayout layout) {
    return layout == PixelLayout::straightLast || layout == PixelLayout::straightFirst;
}

bool isSide(int side) { return side >= 1 && side <= Resampler::longestSide; }

/// The fewest groups that are worth another thread: about 20 microseconds of work.
int groupsAtLeast(const ResamplerPlan& plan) {
    const std::size_t work = plan.samplesBytes() * std::max(8, plan.rows.pairs);
    return static_cast<int>(std::max<std::size_t>(1, (std::size_t{1} << 20) / work));
}

/// Neighbouring groups share source rows. If the rows of one group do not fit a core's cache, a few
/// groups are made together, tile by tile, so that rows are loaded from memory only once for all of them.
struct Blocks {
    int groups;
    std::size_t tileBytes;

    explicit Blocks(const ResamplerPlan& plan) : groups(1), tileBytes(plan.columnBytes()) {
        constexpr std::size_t cacheBytes = std::size_t{512} << 10;
        const ResamplerGroup one(plan, plan.groupCount() / 2);
        const auto sourceRows = static_cast<std::size_t>(one.endSource() - one.firstSource());
        if (sourceRows * plan.sourceRowBytes() <= cacheBytes) return;
        const int atMost = plan.groupCount() / (4 * Workers::count()); // so that all cores have enough
        groups = std::clamp(static_cast<int>(cacheBytes / plan.samplesBytes()), 1, std::max(1, atMost));
        if (groups > 1) tileBytes = 16 * kernels::tileStep;
    }
};

/// Makes the groups from `begin` on, up to `end`, together; `samples` has room for those of all.
void weighGroups(const ResamplerPlan& plan, int begin, int end, std::size_t tileBytes, PixelView from,
                 std::int16_t* samples, MutablePixelView to) {
    const std::size_t step = plan.samplesBytes() / sizeof(std::int16_t);
    std::vector<ResamplerGroup> groups;
    for (int i = begin; i < end; ++i)
        groups.emplace_back(plan, i).take(from, 0);
    for (std::size_t at = 0; at < plan.columnBytes(); at += tileBytes) {
        const ResamplerTile tile{at, std::min(at + tileBytes, plan.columnBytes())};
        for (std::size_t i = 0; i < groups.size(); ++i)
            groups[i].weighRows(tile, kernels::Sums::wholeWindow, nullptr, samples + i * step);
    }
    for (std::size_t i = 0; i < groups.size(); ++i)
        groups[i].weighColumns(samples + i * step, to);
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
    return absentWithoutMemory([&]() -> std::optional<Resampler> {
        return Resampler(std::make_shared<const ResamplerPlan>(
            ResamplerPlan{ResamplerAxis::make(columns, ResamplerAxis::Use::columns),
                          ResamplerAxis::make(rows, ResamplerAxis::Use::rows), layout}));
    });
}

bool Resampler::resample(PixelView from, MutablePixelView to) const {
    const ResamplerPlan& plan = *plan_;
    if (from.width != plan.columns.from || from.height != plan.rows.from || from.layout != plan.layout ||
        !plan.fits(to))
        return false;
    std::atomic<bool> complete{true};
    const Blocks blocks(plan);
    const int groups = plan.groupCount(), groupsInStrip = std::max(blocks.groups, groupsAtLeast(plan));
    const bool had = absentWithoutMemory([&] {
        std::vector<PixelBuffer> buffers(static_cast<std::size_t>(Workers::mostCount()));
        Workers::forEach((groups - 1) / groupsInStrip + 1, [&](int strip, int slot) {
            PixelBuffer& buffer = buffers[static_cast<std::size_t>(slot)];
            if (!buffer) buffer = PixelBuffer::make(plan.samplesBytes() * blocks.groups);
            if (!buffer) return complete.store(false);
            auto* samples = reinterpret_cast<std::int16_t*>(buffer.data());
            const int begin = strip * groupsInStrip, end = std::min(groups, begin + groupsInStrip);
            for (int i = begin; i < end; i += blocks.groups)
                weighGroups(plan, i, std::min(end, i + blocks.groups), blocks.tileBytes, from, samples, to);
        });
        return true;
    });
    return had && complete;
}

} // namespace pex
