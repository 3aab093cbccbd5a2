#pragma once

#include <cstdint>
#include <vector>

namespace pex {

/// Which source samples make each result sample along one axis, and how much each counts: Lanczos with three
/// lobes, stretched to the source's step when reducing, sample centres at (i + 0.5) * from / to, taps outside
/// the source dropped and the rest scaled to sum 1. Weights are integers that sum to exactly 1 << shift, in
/// pairs that begin at even samples, since that is how processors multiply them; a tap that pads a pair
/// weighs 0.
struct ResamplerAxis {
    enum class Use { columns, rows };

    static ResamplerAxis make(int from, int to, Use use);

    const std::int16_t* weightsOf(int i) const { return weights.data() + std::size_t{2} * i * pairs; }

    int from = 0;
    int to = 0;
    int pairs = 0;
    int shift = 0;
    std::vector<int> firstPair;
    std::vector<std::int16_t> weights;
};

} // namespace pex
