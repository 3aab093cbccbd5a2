#pragma once

#include <cstdint>
#include <vector>

namespace pex {

/// A stretch of result samples along one axis: `to` of them, each `step` source samples wide, of which the
/// first begins at the source position `start`. Positions are edges: sample i lies from i to i + 1.
struct ResamplerSpan {
    int from = 0; // source samples
    int to = 0;
    double start = 0;
    double step = 1;

    /// The whole source, edge to edge.
    static ResamplerSpan whole(int from, int to) { return {from, to, 0, static_cast<double>(from) / to}; }
};

/// Which source samples make each result sample along one axis, and how much each counts: Lanczos with three
/// lobes, stretched to the source's step when reducing, around the sample centres, taps outside
/// the source dropped and the rest scaled to sum 1. Weights are integers that sum to exactly 1 << shift, in
/// pairs, since that is how processors multiply them: all pairs begin at even samples, or all at odd ones
/// where fewer do then. A tap that pads a pair, and may lie just outside the source, weighs 0.
struct ResamplerAxis {
    enum class Use { columns, rows };

    static constexpr double lobes = 3;
    static ResamplerAxis make(const ResamplerSpan& span, Use use);

    int firstSample(int pair) const { return 2 * pair - lead; }
    int pairOf(int sample) const { return (sample + lead) / 2; }
    const std::int16_t* weightsOf(int i) const { return weights.data() + std::size_t{2} * i * pairs; }

    int from = 0;
    int to = 0;
    /// 1 where the first pair begins a sample before the source, otherwise 0.
    int lead = 0;
    /// Pairs of every window.
    int pairs = 0;
    /// Whether samples 2i and 2i + 1 have the same first pair. Only columns may.
    bool inTwos = false;
    int shift = 0;
    std::vector<int> firstPair;
    std::vector<std::int16_t> weights;
};

} // namespace pex
