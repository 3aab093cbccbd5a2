#include "peximage/platform/raster/ResamplerGroup.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace pex {
namespace {

using kernels::RowPair;

/// The pairs of rows in `part` that count in the result rows [firstRow, endRow).
std::vector<RowPair> rowPairs(const ResamplerAxis& axis, int firstRow, int endRow, PixelView part,
                              int partFirst) {
    const int begin = std::max(axis.firstPair[firstRow], partFirst / 2);
    const int end = std::min(axis.firstPair[endRow - 1] + axis.pairs, (partFirst + part.height + 1) / 2);
    std::vector<RowPair> pairs;
    pairs.reserve(std::max(0, end - begin));
    for (int p = begin; p < end; ++p) {
        const int upper = 2 * p - partFirst;
        // The lower row of the last pair may be missing; then it weighs nothing.
        RowPair pair{part.row(upper), part.row(std::min(upper + 1, part.height - 1)), {}, 0};
        for (int row = firstRow; row < endRow; ++row) {
            const int k = p - axis.firstPair[row];
            if (k < 0 || k >= axis.pairs) continue;
            std::int32_t& weights = pair.weights[row - firstRow];
            std::memcpy(&weights, axis.weightsOf(row) + 2 * k, sizeof(weights));
            if (weights != 0) pair.used |= 1u << (row - firstRow);
        }
        if (pair.used) pairs.push_back(pair);
    }
    return pairs;
}

} // namespace

ResamplerGroup::ResamplerGroup(const ResamplerPlan& plan, int index)
    : plan_(plan),
      firstRow_(index * plan.rowsInGroup()),
      endRow_(std::min(plan.rows.to, firstRow_ + plan.rowsInGroup())) {}

int ResamplerGroup::endSource() const {
    return std::min(plan_.rows.from, 2 * (firstPair(endRow_ - 1) + plan_.rows.pairs));
}

void ResamplerGroup::weighRows(PixelView part, int partFirst, kernels::Sums how, std::int32_t* sums,
                               std::int16_t* samples) const {
    const int step = kernels::groupRows();
    const std::size_t bytes = plan_.sourceRowBytes();
    const std::size_t sumsOfQuarter = kernels::sumsBytes(bytes) / sizeof(std::int32_t);
    for (int row = firstRow_, quarter = 0; row < endRow_; row += step, ++quarter) {
        const auto pairs = rowPairs(plan_.rows, row, std::min(endRow_, row + step), part, partFirst);
        kernels::weighRows({pairs.data(), static_cast<int>(pairs.size()), bytes, plan_.rows.shift, how,
                            sums ? sums + quarter * sumsOfQuarter : nullptr, samples, plan_.isGrey(),
                            quarter});
    }
}

void ResamplerGroup::weighColumns(const std::int16_t* samples, MutablePixelView to) const {
    std::array<std::uint8_t*, 4 * kernels::mostGroupRows> rows{};
    for (int row = firstRow_; row < endRow_; ++row)
        rows[row - firstRow_] = to.row(row);
    const ResamplerAxis& axis = plan_.columns;
    kernels::weighColumns({samples, axis.firstPair.data(), axis.weights.data(), axis.pairs, axis.shift,
                           axis.to, plan_.layout, rows.data(), endRow_ - firstRow_});
}

} // namespace pex
