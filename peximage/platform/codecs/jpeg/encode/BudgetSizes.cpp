#include "peximage/platform/codecs/jpeg/encode/BudgetSizes.h"

#include "peximage/platform/codecs/jpeg/encode/Quantisation.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace pex::jpeg {
namespace {

/// Up to this many pixels every size is exact: nothing is dear there, and the files of tiny pictures do not
/// always grow with the quality.
constexpr double smallPicture = 1 << 17;

/// How coarse a quality is: the sum of its divisors. Equal for two qualities only when their files are.
double coarseness(double quality) {
    const Quantisation tables = quantisation(quality);
    return std::accumulate(tables.luma.begin(), tables.luma.end(), 0.0) +
           std::accumulate(tables.cb.begin(), tables.cb.end(), 0.0) +
           std::accumulate(tables.cr.begin(), tables.cr.end(), 0.0);
}

} // namespace

BudgetSizes::BudgetSizes(std::shared_ptr<Encoder> encoder, double budget, double target, double tolerance)
    : encoder_(std::move(encoder)), budget_(budget), target_(target), tolerance_(tolerance) {}

double BudgetSizes::sizeForSearch(double quality) {
    if (encoder_->pixelCount() <= smallPicture) return exact(quality);
    if (neighbours_.lower < 0) findNeighbours();
    const auto [lower, upper] = neighbours_;
    const bool isBetween = quality > lower && quality < upper;
    if (isBetween || encoder_->knowsByteCount(quality)) return exact(quality);
    const double neighbour = quality < lower ? lower : upper;
    if (isFlat(std::min(quality, neighbour), std::max(quality, neighbour))) return exact(quality);
    const double off = coarseness(neighbour) - coarseness(quality);
    return quality < lower ? exact(lower) + off : std::max(exact(upper), budget_) + off;
}

/// Whether the lower quality seems to find nothing more to drop than the higher one: their files may have the
/// same size then.
bool BudgetSizes::isFlat(double lower, double higher) { return roughly(lower) >= roughly(higher); }

void BudgetSizes::findNeighbours() {
    if (!encoder_->surelyReaches(1, budget_) && exact(1) < target_) {
        neighbours_ = {1, 1};
        return;
    }
    using enum Encoder::Estimate;
    const double about = bisect(1).lower;
    double correction = encoder_->estimatedByteCount(about, fine) / estimate(about, 1);
    // Every round makes one more size exact, and with it all estimates better.
    for (;;) {
        neighbours_ = bisect(correction);
        const double next = nextToMakeExact(correction);
        if (encoder_->knowsByteCount(next)) break;
        const double estimated = estimate(next, 1);
        correction = exact(next) / estimated;
    }
    if (neighbours_.lower == 0 && exact(0) > target_) neighbours_.upper = 0;
}

BudgetSizes::Neighbours BudgetSizes::bisect(double correction) {
    Neighbours between{0, 1};
    while (between.upper - between.lower >= tolerance_) {
        const double middle = (between.lower + between.upper) / 2;
        (estimate(middle, correction) <= target_ ? between.lower : between.upper) = middle;
    }
    return between;
}

/// The neighbour whose size is only estimated; of two the one nearer to the target.
double BudgetSizes::nextToMakeExact(double correction) {
    const auto [lower, upper] = neighbours_;
    if (encoder_->knowsByteCount(lower)) return upper;
    if (encoder_->knowsByteCount(upper)) return lower;
    const double below = target_ - estimate(lower, correction), above = estimate(upper, correction) - target_;
    return below < above ? lower : upper;
}

double BudgetSizes::estimate(double quality, double correction) {
    return encoder_->knowsByteCount(quality) ? exact(quality) : roughly(quality) * correction;
}

double BudgetSizes::roughly(double quality) {
    auto& estimate = estimates_[quality];
    if (estimate == 0) estimate = encoder_->estimatedByteCount(quality, Encoder::Estimate::rough);
    return estimate;
}

double BudgetSizes::exact(double quality) { return static_cast<double>(encoder_->byteCount(quality)); }

} // namespace pex::jpeg
