#include "peximage/budget/BudgetSearch.h"

#include "peximage/budget/PexDicotomic.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <set>
#include <string>

namespace pex {
namespace {

/// The search aims a little below the budget, so that what it finds fits as a rule.
constexpr double budgetShare = 0.975;

bool fits(RepeatedEncoding& encoding, double quality, long long budget) {
    return encoding.byteCount(quality) <= budget;
}

/// The quality to write for a budget that quality 0 keeps and quality 1 does not.
double searchQuality(RepeatedEncoding& encoding, PexDicotomic search, const BudgetSearch& how) {
    std::set<double> tried;
    search.function = PexDicotomic::memoised([&](double quality) {
        endIfStopped();
        tried.insert(quality);
        const double bytes = encoding.sizeForSearch(quality);
        if (how.printsSizes) diagnostics::print("size: " + decimalText(bytes));
        return bytes;
    });
    double quality = search.search();
    if (!fits(encoding, quality, how.budget)) {
        const auto best = std::find_if(tried.rbegin(), tried.rend(),
                                       [&](double other) { return fits(encoding, other, how.budget); });
        quality = best != tried.rend() ? *best : 0;
    }
    diagnostics::print("quality: " + decimalText(quality));
    return quality;
}

} // namespace

std::optional<WithinBudget> BudgetSearch::run(const Pictures& next) const {
    const auto limit = static_cast<double>(budget);
    PexDicotomic search;
    search.target = limit * budgetShare;
    std::unique_ptr<RepeatedEncoding> encoding = next();
    if (!encoding) return std::nullopt;
    for (; encoding; encoding = next()) {
        endIfStopped();
        encoding->prepare({limit, search.target, search.intervalTolerance});
        const double largest = encoding->sizeForSearch(1);
        if (largest > 0 && largest < limit) return WithinBudget{std::move(encoding), 1};
        const double smallest = encoding->sizeForSearch(0);
        if (largest == 0 && smallest == 0) return std::nullopt; // nothing here can encode it
        if (smallest <= limit) {
            const double quality = searchQuality(*encoding, search, *this);
            return WithinBudget{std::move(encoding), quality};
        }
    }
    giveReason(ReasonCode::budgetTooSmall, "cannot be made as small as " + std::to_string(budget) + " bytes");
    return std::nullopt;
}

} // namespace pex
