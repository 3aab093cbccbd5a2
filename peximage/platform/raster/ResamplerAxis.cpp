#include "peximage/platform/raster/ResamplerAxis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

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

/// sinc(x) * sinc(x / 3) at places `step` apart. With a = pi * x / 3 this is sin(3a) * sin(a) / 3a^2, and
/// sin(3a) follows from sin(a), which a rotation carries from tap to tap.
class Lanczos {
  public:
    explicit Lanczos(double step)
        : step_(step * toAngle), stepSine_(std::sin(step_)), stepCosine_(std::cos(step_)) {}

    /// Writes `count` taps from `x` on and returns their sum.
    double write(double x, double* taps, int count) const {
        const double begin = x * toAngle;
        double sine = std::sin(begin), cosine = std::cos(begin), sum = 0;
        for (int i = 0; i < count; ++i) {
            const double a = begin + i * step_;
            taps[i] = std::abs(a) < 1e-7 ? 1 : sine * sine * (3 - 4 * sine * sine) / (3 * a * a);
            sum += taps[i];
            const double next = sine * stepCosine_ + cosine * stepSine_;
            cosine = cosine * stepCosine_ - sine * stepSine_;
            sine = next;
        }
        return sum;
    }

  private:
    static constexpr double toAngle = std::numbers::pi / lobes;
    double step_, stepSine_, stepCosine_;
};

Windows windowsOf(const ResamplerSpan& span) {
    const int from = span.from, to = span.to;
    const double stretch = std::max(1.0, span.step);
    const Lanczos filter(1 / stretch);
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
        const double scale = 1 / filter.write((first - centre) / stretch, taps, end - first);
        for (int k = 0; k < end - first; ++k) {
            taps[k] *= scale;
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

/// Integers that sum to exactly 1 << shift: the steps between the taps' rounded running sums.
void quantise(const double* taps, int count, int shift, std::int16_t* weights) {
    constexpr int above = 1 << 24; // keeps the sums positive, so that a conversion rounds them down
    const double unit = std::ldexp(1.0, shift);
    double sum = above + 0.5;
    int before = above;
    for (int k = 0; k < count; ++k) {
        sum += taps[k] * unit;
        const int next = static_cast<int>(sum);
        weights[k] = static_cast<std::int16_t>(next - before);
        before = next;
    }
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
    for (int i = 0; i < to; ++i) {
        const int first = windows.first[i];
        axis.firstPair[i] = std::min(axis.pairOf(first), lastPair);
        quantise(&windows.taps[std::size_t(i) * windows.width], windows.end[i] - first, axis.shift,
                 &axis.weights[std::size_t{2} * i * axis.pairs] + first -
                     axis.firstSample(axis.firstPair[i]));
    }
    return axis;
}

} // namespace pex
