#pragma once

#include "peximage/platform/raster/PixelView.h"

#include <memory>
#include <optional>

namespace pex {

struct ResamplerPlan;
struct ResamplerSpan;

/// Resizes pictures from one size to another by a separable three-lobed Lanczos filter, which widens with the
/// reduction, so that it antialiases, and interpolates when enlarging. The picture's edges map to the
/// result's edges; what the filter would take from beyond them is left out and the rest counts more.
///
/// Results are within 0.55 / 255 of exact arithmetic and the same bytes on any number of threads, on every
/// instruction set, and however a source is cut into strips. Immutable: one resampler serves any number of
/// pictures and threads at once. For a source that comes strip by strip see ResamplerStream.
class Resampler {
  public:
    static constexpr int longestSide = 1 << 20;

    /// Absent for sides below 1 or above `longestSide`, for lack of memory, and for straight alpha, which has
    /// to be multiplied in before pictures are filtered. With premultiplied layouts colour is limited to
    /// alpha after the filter's overshoot; skipped bytes come out as 255.
    static std::optional<Resampler> make(int fromWidth, int fromHeight, int toWidth, int toHeight,
                                         PixelLayout layout);
    /// The same for a part of a larger result; its source samples lie within half a sample of the spans.
    static std::optional<Resampler> make(const ResamplerSpan& columns, const ResamplerSpan& rows,
                                         PixelLayout layout);

    /// Resizes a whole picture in memory, in strips on all cores. Both views have the sizes and the layout
    /// that the resampler was made for and do not overlap. False, with part of `to` undefined, when the views
    /// do not fit or there is no memory for the work (some rows a core).
    bool resample(PixelView from, MutablePixelView to) const;

  private:
    friend class ResamplerStream;
    explicit Resampler(std::shared_ptr<const ResamplerPlan> plan) : plan_(std::move(plan)) {}

    std::shared_ptr<const ResamplerPlan> plan_;
};

} // namespace pex
