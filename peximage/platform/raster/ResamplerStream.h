#pragma once

#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/raster/PixelView.h"
#include "peximage/platform/raster/Resampler.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace pex {

/// Resizes a picture whose rows come top first, strip by strip, as a decoder makes them: the source is never
/// held as a whole, whatever the sizes. The decoder writes into the stream's own strip:
///
///     while (stream->rowsLeft() > 0) {
///         const MutablePixelView room = stream->room();
///         reader.read(room);
///         stream->commit(room.height);
///     }
///
/// The result has the same bytes as Resampler::resample gives. A stream belongs to one thread at a time and
/// works on all cores itself.
class ResamplerStream {
  public:
    /// Begins a picture that goes to `to`, which has the resampler's target size and layout. Absent when it
    /// has not, or for lack of memory. Needs the resampler no longer.
    static std::optional<ResamplerStream> make(const Resampler& resampler, MutablePixelView to);

    /// Rows of the source that have not been committed.
    int rowsLeft() const;
    /// Where the next rows of the source are to be written: at least one while rows are left, as wide as the
    /// source.
    MutablePixelView room() const;
    /// Takes the first `rows` rows of `room()`, which is another place afterwards. False when memory ran out;
    /// the result is then incomplete for good.
    bool commit(int rows);
    /// Rows of the result that are complete, from the top.
    int rowsDone() const;

  private:
    ResamplerStream(std::shared_ptr<const ResamplerPlan> plan, MutablePixelView to);

    int stripRows() const;
    bool work();
    bool reachGroups(int end);
    void workOnGroup(int place, int begun, std::int16_t* samples) const;
    void closeGroups(int end);

    std::shared_ptr<const ResamplerPlan> plan_;
    MutablePixelView to_;
    PixelBuffer strip_;
    std::ptrdiff_t bytesPerRow_ = 0;
    /// Source rows before the strip, and those in it.
    int before_ = 0;
    int inStrip_ = 0;
    bool failed_ = false;
    /// The first group that is not complete, and for it and those that follow, as far as the source has
    /// reached them, their unfinished sums; none where a group needs nothing but the strip.
    int nextGroup_ = 0;
    std::deque<PixelBuffer> sums_;
    std::vector<PixelBuffer> spareSums_;
};

} // namespace pex
