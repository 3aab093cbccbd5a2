#pragma once

#include "peximage/platform/raster/PixelView.h"
#include "peximage/platform/raster/ResamplerAxis.h"
#include "peximage/platform/raster/kernels/WeighColumns.h"
#include "peximage/platform/raster/kernels/WeighRows.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace pex {

/// The tables and sizes of a resampler.
struct ResamplerPlan {
    ResamplerAxis columns;
    ResamplerAxis rows;
    PixelLayout layout;

    bool isGrey() const { return layout == PixelLayout::grey; }
    std::size_t sourceRowBytes() const { return std::size_t(columns.from) * bytesPerPixel(layout); }
    bool fits(MutablePixelView to) const {
        return to.width == columns.to && to.height == rows.to && to.layout == layout;
    }

    int rowsInGroup() const { return kernels::groupRows * (isGrey() ? 4 : 1); }
    int groupCount() const { return (rows.to + rowsInGroup() - 1) / rowsInGroup(); }
    std::size_t samplesBytes() const { return kernels::samplesBytes(columns.from, layout); }
    std::size_t leadBytes() const { return std::size_t(columns.lead) * bytesPerPixel(layout); }
    std::size_t columnBytes() const { return leadBytes() + sourceRowBytes(); }
    std::size_t sumsBytes() const { return kernels::sumsBytes(columnBytes()) * (isGrey() ? 4 : 1); }
};

/// A part of the columns of source rows in bytes, counted with the plan's lead.
struct ResamplerTile {
    std::size_t begin;
    std::size_t end;
};

/// A few result rows that are made together, from the source rows [firstSource, endSource). A group is made
/// in one go, or part by part of its source rows, top first, with the sums kept in between.
class ResamplerGroup {
  public:
    ResamplerGroup(const ResamplerPlan& plan, int index);

    int firstRow() const { return firstRow_; }
    int endRow() const { return endRow_; }
    int firstSource() const;
    int endSource() const;

    /// Selects the group's source rows in `part`, whose first row is row `partFirst` of the source:
    /// the first row or the upper one of a pair.
    void take(PixelView part, int partFirst);
    /// Weighs a tile of that. `sums` has the plan's `sumsBytes`, `samples` its `samplesBytes`.
    void weighRows(ResamplerTile tile, kernels::Sums how, std::int32_t* sums, std::int16_t* samples) const;
    /// Writes the group's rows to the whole result, from the samples that the last `weighRows` left.
    void weighColumns(const std::int16_t* samples, MutablePixelView to) const;

  private:
    const ResamplerPlan& plan_;
    int firstRow_;
    int endRow_;
    /// Of each quarter of a grey group, or the whole of a coloured one.
    std::vector<std::vector<kernels::RowPair>> pairs_;
};

} // namespace pex
