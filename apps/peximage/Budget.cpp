#include "Budget.h"

#include "peximage/platform/foundation/Reason.h"

#include <algorithm>
#include <cmath>

namespace {

using Image = BudgetCodec::Image;

/// Of a picture that has to become smaller, the size at which this quality fits looks best once it is
/// enlarged again, or nearly so: see docs/tool.md for how that was measured.
constexpr double bestLookQuality = 0.6;
/// The share of the budget to which sizes are tried.
constexpr double least = 0.85, aim = 0.95;

/// Bytes grow with a side by this power: less than by its square, since small pictures are busier.
constexpr double growth = 1.7;

Image resized(const Image& image, double scale) {
    const pex::CGSize size = image->size * scale;
    return image->resize(
        {.to = {std::max(std::trunc(size.width), 1.0), std::max(std::trunc(size.height), 1.0)}});
}

/// The largest of the sizes tried at which the quality fits; null where none does.
Image smallerThatFits(const Image& image, long long budget, double quality, const BudgetCodec& codec) {
    constexpr int tries = 12;
    Image found;
    double scale = 1, tooLarge = 1;
    for (int i = 0; i < tries; ++i) {
        const Image smaller = i == 0 ? image : resized(image, scale);
        const auto bytes = smaller ? codec.encode(smaller, quality) : std::nullopt;
        if (!bytes) return nullptr;
        const double share = static_cast<double>(bytes->size()) / static_cast<double>(budget);
        if (share <= 1) found = smaller;
        if ((share <= 1 && share >= least) || std::max(smaller->size.width, smaller->size.height) <= 1) break;
        if (share > 1) tooLarge = scale;
        scale = std::min(scale * std::pow(aim / share, 1 / growth), (scale + tooLarge) / 2);
    }
    return found;
}

} // namespace

std::optional<pex::FittedPicture> fittedWithin(const Image& image, long long budget, double leastQuality,
                                               const BudgetCodec& codec) {
    auto fitted = codec.fit(image);
    if (fitted && fitted->quality >= leastQuality) return fitted;
    if (!fitted && pex::lastReason().code != pex::ReasonCode::budgetTooSmall) return std::nullopt;
    const double wanted = std::max(leastQuality, bestLookQuality);
    const Image smaller = budget > 0 ? smallerThatFits(image, budget, wanted, codec) : nullptr;
    if (smaller) {
        fitted = codec.fit(smaller);
        if (fitted && fitted->quality >= wanted) return fitted;
        auto bytes = codec.encode(smaller, wanted); // the search stays a little below the budget
        if (!bytes) return std::nullopt;
        return pex::FittedPicture{*std::move(bytes), wanted, smaller->size};
    }
    if (!fitted)
        pex::giveReason(pex::ReasonCode::budgetTooSmall,
                        "cannot be made as small as " + std::to_string(budget) + " bytes");
    return fitted;
}
