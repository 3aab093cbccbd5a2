#include "peximage/platform/raster/ResamplerGroup.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace pex {
namespace {

using kernels::RowPair;

/// Extends the rows in `used` to the first or to the last row, whichever adds fewer.
unsigned firstsOrLasts(unsigned used) {
    constexpr unsigned all = (1u << kernels::groupRows) - 1;
    const unsigned firsts = std::bit_ceil(used + 1) - 1;
    const unsigned lasts = all & ~((used & -used) - 1);
    return std::popcount(firsts) < std::popcount(lasts) ? firsts : lasts;
}

/// The pairs of rows in `part` that count in the result rows [firstRow, endRow).
std::vector<RowPair> rowPairs(const ResamplerAxis& axis, int firstRow, int endRow, PixelView part,
                              int partFirst) {
    const int partEnd = partFirst + part.height;
    const int begin = std::max(axis.firstPair[firstRow], axis.pairOf(partFirst));
    const int end = std::min(axis.firstPair[endRow - 1] + axis.pairs, axis.pairOf(partEnd - 1) + 1);
    std::vector<RowPair> pairs;
    pairs.reserve(std::max(0, end - begin) + 1);
    for (int p = begin; p < end; ++p) {
        // The first pair may have no upper row and the last no lower one; then it weighs nothing.
        const int upper = std::max(axis.firstSample(p), partFirst) - partFirst;
        const int lower = std::min(axis.firstSample(p) + 1, partEnd - 1) - partFirst;
        RowPair pair{part.row(upper), part.row(lower), {}, 0};
        for (int row = firstRow; row < endRow; ++row) {
            const int k = p - axis.firstPair[row];
            if (k < 0 || k >= axis.pairs) continue;
            std::int32_t& weights = pair.weights[row - firstRow];
            std::memcpy(&weights, axis.weightsOf(row) + 2 * k, sizeof(weights));
            if (weights != 0) pair.used |= 1u << (row - firstRow);
        }
        pair.used = firstsOrLasts(pair.used);
        if (pair.used) pairs.push_back(pair);
    }
    pairs.push_back({});
    return pairs;
}

} // namespace

ResamplerGroup::ResamplerGroup(const ResamplerPlan& plan, int index)
    : plan_(plan),
      firstRow_(index * plan.rowsInGroup()),
      endRow_(std::min(plan.rows.to, firstRow_ + plan.rowsInGroup())) {}

int ResamplerGroup::firstSource() const {
    return std::max(0, plan_.rows.firstSample(plan_.rows.firstPair[firstRow_]));
}

int ResamplerGroup::endSource() const {
    const ResamplerAxis& axis = plan_.rows;
    return std::min(axis.from, axis.firstSample(axis.firstPair[endRow_ - 1] + axis.pairs));
}

void ResamplerGroup::take(PixelView part, int partFirst) {
    constexpr int step = kernels::groupRows;
    pairs_.clear();
    for (int row = firstRow_; row < endRow_; row += step)
        pairs_.push_back(rowPairs(plan_.rows, row, std::min(endRow_, row + step), part, partFirst));
}

void ResamplerGroup::weighRows(ResamplerTile tile, kernels::Sums how, std::int32_t* sums,
                               std::int16_t* samples) const {
    const std::size_t bytes = plan_.sourceRowBytes(), lead = plan_.leadBytes();
    const std::size_t sumsOfQuarter = kernels::sumsBytes(lead + bytes) / sizeof(std::int32_t);
    for (std::size_t quarter = 0; quarter < pairs_.size(); ++quarter) {
        kernels::weighRows({pairs_[quarter].data(), bytes, lead, tile.begin, tile.end, plan_.rows.shift, how,
                            sums ? sums + quarter * sumsOfQuarter : nullptr, samples, plan_.isGrey(),
                            static_cast<int>(quarter)});
    }
}

void ResamplerGroup::weighColumns(const std::int16_t* samples, MutablePixelView to) const {
    std::array<std::uint8_t*, 4 * kernels::groupRows> rows{};
    for (int row = firstRow_; row < endRow_; ++row)
        rows[row - firstRow_] = to.row(row);
    const ResamplerAxis& axis = plan_.columns;
    kernels::weighColumns({samples, axis.firstPair.data(), axis.weights.data(), axis.pairs, axis.inTwos,
                           axis.shift, axis.to, plan_.layout, rows.data(), endRow_ - firstRow_});
}

} // namespace pex
