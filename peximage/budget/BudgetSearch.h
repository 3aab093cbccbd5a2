#pragma once

#include "peximage/platform/codecs/RepeatedEncoding.h"

#include <functional>
#include <memory>
#include <optional>

namespace pex {

/// A picture, perhaps a smaller one than was asked for, with the quality at which its file keeps the budget.
struct WithinBudget {
    std::unique_ptr<RepeatedEncoding> encoding;
    double quality;
};

/// The search for the quality whose file is nearest to 0.975 of a byte budget and not above it.
struct BudgetSearch {
    /// The most bytes.
    long long budget;
    /// Prints "size: n" for every quality tried.
    bool printsSizes = false;

    /// The encoding of the picture at first, then of one of 90 % a side each time; null when there is none.
    using Pictures = std::function<std::unique_ptr<RepeatedEncoding>()>;
    /// Quality 1 where that fits, else what the bisection finds, of the first picture that fits at quality 0.
    /// Prints the bisection's lines and "quality: q". Absent, with the reason, when no picture is left, or
    /// one cannot be encoded.
    std::optional<WithinBudget> run(const Pictures& next) const;
};

/// A side of the next smaller picture.
inline constexpr double budgetShrinkFactor = 0.9;

} // namespace pex
