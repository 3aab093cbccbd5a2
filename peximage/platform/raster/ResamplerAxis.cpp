#include "peximage/platform/raster/ResamplerAxis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <numeric>

namespace pex {
namespace {

constexpr double lobes = ResamplerAxis::lobes;

/// The taps of every result sample: windows from `first` to `end`. Samples in the same place between source
/// samples share one set of taps.
struct Windows {
    std::vector<int> first;
    std::vector<int> end;
    std::vector<int> set;
    /// Sets in full precision, with room for `width` taps each.
    int width = 0;
    std::vector<double> taps;
    double largest = 0;

    int count(int i) const { return end[i] - first[i]; }
    /// Where the taps of a window begin, and in a vector like theirs what is made of them.
    std::size_t tapsAt(int i) const { return std::size_t(set[i]) * width; }
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

/// After how many result samples their positions between source samples repeat, and how many source
/// samples that is.
struct Period {
    explicit Period(const ResamplerSpan& span) {
        const int divisor = std::gcd(span.from, span.to);
        if (span.start != 0 || span.step != double(span.from) / span.to || divisor == 1) return;
        to = span.to / divisor, from = span.from / divisor;
    }
    /// 0 when nothing repeats.
    int to = 0;
    int from = 0;
};

/// Whether window i is the one `period` before it, moved along, and neither ends at the source's edges.
bool repeats(const Windows& windows, int i, const Period& period, int from) {
    const int before = i - period.to;
    return period.to > 0 && before >= 0 && windows.first[before] > 0 && windows.end[i] < from &&
           windows.first[i] == windows.first[before] + period.from &&
           windows.end[i] == windows.end[before] + period.from;
}

Windows windowsOf(const ResamplerSpan& span) {
    const int from = span.from, to = span.to;
    const double stretch = std::max(1.0, span.step), reach = lobes * stretch;
    const Lanczos filter(1 / stretch);
    const Period period(span);
    Windows windows;
    windows.width = std::min(from, int(std::ceil(2 * reach)) + 1);
    windows.first.resize(to);
    windows.end.resize(to);
    windows.set.resize(to);
    int sets = 0;
    for (int i = 0; i < to; ++i) {
        const double centre = span.start + (i + 0.5) * span.step - 0.5;
        const int first = std::max(0, int(std::ceil(centre - reach)));
        const int end = std::min(from, int(std::floor(centre + reach)) + 1);
        windows.first[i] = first;
        windows.end[i] = end;
        if (repeats(windows, i, period, from)) {
            windows.set[i] = windows.set[i - period.to];
            continue;
        }
        windows.set[i] = sets++;
        windows.taps.resize(std::size_t(sets) * windows.width);
        double* taps = &windows.taps[windows.tapsAt(i)];
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

/// The weights of all sets as integers, in the order of the windows' taps.
std::vector<std::int16_t> quantised(const Windows& windows, int shift) {
    std::vector<std::int16_t> weights(windows.taps.size());
    const int count = static_cast<int>(windows.set.size());
    for (int i = 0, next = 0; i < count; ++i) {
        if (windows.set[i] != next) continue;
        ++next;
        const std::size_t at = windows.tapsAt(i);
        quantise(&windows.taps[at], windows.count(i), shift, &weights[at]);
    }
    return weights;
}

/// How windows are cut into pairs.
struct Pairing {
    int lead = 0;
    bool inTwos = false;
    int pairs = 0;

    /// The pairs of the longest window, or of the longest two together.
    Pairing(const Windows& windows, int lead, bool inTwos) : lead(lead), inTwos(inTwos) {
        const std::size_t count = windows.first.size(), step = inTwos ? 2 : 1;
        for (std::size_t i = 0; i < count; i += step) {
            const int end = windows.end[std::min(i + step, count) - 1];
            pairs = std::max(pairs, (end + lead + 1) / 2 - (windows.first[i] + lead) / 2);
        }
    }
    /// The measured cost: a product and a load for each pair; two windows together share loads.
    int work() const { return (inTwos ? 7 : 8) * pairs; }
};

Pairing bestPairing(const Windows& windows, ResamplerAxis::Use use) {
    Pairing best(windows, 0, false);
    for (const bool inTwos : {false, true}) {
        if (inTwos && use == ResamplerAxis::Use::rows) break;
        for (const int lead : {0, 1}) {
            const Pairing other(windows, lead, inTwos);
            if (other.work() < best.work()) best = other;
        }
    }
    return best;
}

} // namespace

ResamplerAxis ResamplerAxis::make(const ResamplerSpan& span, Use use) {
    const int from = span.from, to = span.to;
    const Windows windows = windowsOf(span);
    const Pairing pairing = bestPairing(windows, use);
    ResamplerAxis axis;
    axis.from = from, axis.to = to;
    axis.lead = pairing.lead;
    axis.pairs = pairing.pairs;
    axis.inTwos = pairing.inTwos;
    axis.shift = fractionBits(windows.largest, use);
    axis.firstPair.resize(to);
    axis.weights.assign(std::size_t{2} * to * axis.pairs, 0);
    const auto weights = quantised(windows, axis.shift);
    const int lastPair = axis.pairOf(from - 1) + 1 - axis.pairs;
    for (int i = 0; i < to; ++i) {
        const int begin = axis.pairOf(windows.first[axis.inTwos ? i / 2 * 2 : i]);
        axis.firstPair[i] = std::min(begin, lastPair);
        std::copy_n(&weights[windows.tapsAt(i)], windows.count(i),
                    &axis.weights[std::size_t{2} * i * axis.pairs] + windows.first[i] -
                        axis.firstSample(axis.firstPair[i]));
    }
    return axis;
}

} // namespace pex
