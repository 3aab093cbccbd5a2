#pragma once

#include "peximage/budget/FittedPicture.h"
#include "peximage/image/PexImage.h"

#include <functional>
#include <memory>
#include <optional>

/// How a format is encoded to keep a byte budget.
struct BudgetCodec {
    using Image = std::shared_ptr<pex::PexImage>;

    std::function<std::optional<pex::Data>(const Image&, double quality)> encode;
    /// The best quality that the budget allows; it may shrink the picture where none does. Absent with the
    /// library's reason.
    std::function<std::optional<pex::FittedPicture>(const Image&)> fit;
};

/// The picture within the budget. Where that would take a quality below the least, the picture becomes
/// smaller until about the quality fits at which results look best.
std::optional<pex::FittedPicture> fittedWithin(const BudgetCodec::Image& image, long long budget,
                                               double leastQuality, const BudgetCodec& codec);
