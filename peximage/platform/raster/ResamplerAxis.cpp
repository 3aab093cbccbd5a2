#include "peximage/platform/raster/ResamplerAxis.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace pex {
namespace {

constexpr double lobes = ResamplerAxis::lobes;

/// The taps of every result sample in full precision: windows from `first` to `end`, with room for `width`.
struct Windows {
    int width = 0;
    std::vector<int> first;
    std::vector<int> end;
    std::vector<double> taps;
    double largest = 0;
};

/// Writes sinc(x) * sinc(x / 3) at `count` places `step` apart from `x` on. With a = pi * x / 3 this is
/// sin(3a) * sin(a) / 3a^2, and sin(3a) follows from sin(a), which a rotation carries from tap to tap.
void lanczos(double x, double step, double* taps, int count) {
    constexpr double toAngle = std::numbers::pi / lobes;
    double sine = std::sin(x * toAngle), cosine = std::cos(x * toAngle);
    const double stepSine = std::sin(step * toAngle), stepCosine = std::cos(step * toAngle);
    for (int i = 0; i < count; ++i) {
        const double a = (x + i * step) * toAngle;
        taps[i] = std::abs(a) < 1e-7 ? 1 : sine * sine * (3 - 4 * sine * sine) / (3 * a * a);
        const double next = sine * stepCosine + cosine * stepSine;
        cosine = cosine * stepCosine - sine * stepSine;
        sine = next;
    }
}

Windows windowsOf(const ResamplerSpan& span) {
    const int from = span.from, to = span.to;
    const double stretch = std::max(1.0, span.step);
    Windows windows;
    windows.width = std::min(from, int(std::ceil(2 * lobes * stretch)) + 1);
    windows.first.resize(to);
    windows.end.resize(to);
    windows.taps.resize(std::size_t(to) * windows.width);
    for (int i = 0; i < to; ++i) {
        const double centre = span.start + (i + 0.5) * span.step - 0.5;
        const int first = std::max(0, int(std::ceil(centre - lobes * stretch)));
        const int end = std::min(from, int(std::floor(centre + lobes * stretch)) + 1);
        double* taps = &windows.taps[std::size_t(i) * windows.width];
        windows.first[i] = first;
        windows.end[i] = end;
        lanczos((first - centre) / stretch, 1 / stretch, taps, end - first);
        const double sum = std::accumulate(taps, taps + (end - first), 0.0);
        for (int k = 0; k < end - first; ++k) {
            taps[k] /= sum;
            windows.largest = std::max(windows.largest, std::abs(taps[k]));
        }
    }
    return windows;
}

/// As many fraction bits as the kernels' arithmetic holds. Rows: 8-bit samples times weights in 32 bits, and
/// the overshoot of the filter. Columns: the samples have 6 fraction bits more, so past 16 bits the kernels
/// sum four pairs at a time and weights have to leave room for that.
int fractionBits(double largest, ResamplerAxis::Use use) {
    const auto bits = [largest](double limit) { return int(std::floor(std::log2(limit / largest))); };
    if (use == ResamplerAxis::Use::rows) return std::min(22, bits(32766));
    return std::min(bits(32766), std::max(16, bits(11000)));
}

/// Integers that sum to exactly 1 << shift: all rounded down, then those with the largest remainders up.
void quantise(const double* taps, int count, int shift, std::vector<int>& order, std::vector<int>& result) {
    const double unit = std::ldexp(1.0, shift);
    result.resize(count);
    int missing = 1 << shift;
    for (int k = 0; k < count; ++k) {
        result[k] = int(std::floor(taps[k] * unit));
        missing -= result[k];
    }
    order.resize(count);
    std::iota(order.begin(), order.end(), 0);
    const auto remainder = [&](int k) { return taps[k] * unit - result[k]; };
    missing = std::clamp(missing, 0, count);
    std::nth_element(order.begin(), order.begin() + std::min(missing, count - 1), order.end(),
                     [&](int a, int b) { return std::pair(-remainder(a), a) < std::pair(-remainder(b), b); });
    for (int k = 0; k < missing; ++k)
        ++result[order[k]];
}

/// How many pairs the longest window takes when pairs begin `lead` samples before the source.
int longestInPairs(const Windows& windows, int lead) {
    int longest = 0;
    for (std::size_t i = 0; i < windows.first.size(); ++i)
        longest = std::max(longest, (windows.end[i] + lead + 1) / 2 - (windows.first[i] + lead) / 2);
    return longest;
}

} // namespace

ResamplerAxis ResamplerAxis::make(const ResamplerSpan& span, Use use) {
    const int from = span.from, to = span.to;
    const Windows windows = windowsOf(span);
    ResamplerAxis axis;
    axis.from = from, axis.to = to;
    axis.lead = longestInPairs(windows, 1) < longestInPairs(windows, 0) ? 1 : 0;
    axis.pairs = longestInPairs(windows, axis.lead);
    axis.shift = fractionBits(windows.largest, use);
    axis.firstPair.resize(to);
    axis.weights.assign(std::size_t{2} * to * axis.pairs, 0);
    const int lastPair = axis.pairOf(from - 1) + 1 - axis.pairs;
    std::vector<int> order, taps;
    for (int i = 0; i < to; ++i) {
        const int first = windows.first[i];
        axis.firstPair[i] = std::min(axis.pairOf(first), lastPair);
        quantise(&windows.taps[std::size_t(i) * windows.width], windows.end[i] - first, axis.shift, order,
                 taps);
        std::int16_t* weights = &axis.weights[std::size_t{2} * i * axis.pairs];
        std::ranges::copy(taps, weights + (first - axis.firstSample(axis.firstPair[i])));
    }
    return axis;
}

} // namespace pex
