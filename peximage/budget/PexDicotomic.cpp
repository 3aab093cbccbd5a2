#include "peximage/budget/PexDicotomic.h"

#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/NumberText.h"
#include "peximage/platform/varda/PexPrecalc.h"

#include <cmath>
#include <memory>

namespace pex {
namespace {

/// The end of [a, b] beyond whose value the target lies; absent when it lies between the two values, or they
/// are equal.
std::optional<double> endBeyond(double a, double fa, double b, double fb, double target) {
    if (fa < fb) {
        if (target < fa) return a;
        if (target > fb) return b;
    } else if (fa > fb) {
        if (target > fa) return a;
        if (target < fb) return b;
    }
    return std::nullopt;
}

} // namespace

double PexDicotomic::search(std::optional<double> from, std::optional<double> to) const {
    const double a = from.value_or(low), b = to.value_or(high);
    diagnostics::print("PexDicotomic: " + decimalText(a) + " - " + decimalText(b));
    if (!function) return a;
    const auto nearer = [this](double x, double y) {
        const double dx = std::abs(function(x) - target) / target,
                     dy = std::abs(function(y) - target) / target;
        return dx < dy ? x : y;
    };
    const double fa = function(a), fb = function(b), middle = (a + b) / 2;
    const bool indivisible = !(middle > std::fmin(a, b) && middle < std::fmax(a, b));
    if (std::abs(b - a) < intervalTolerance || indivisible) return nearer(a, b);
    if (const auto end = endBeyond(a, fa, b, fb, target)) return *end;
    const double lower = search(a, middle);
    const double upper = search(middle, b);
    return nearer(lower, upper);
}

std::function<double(double)> PexDicotomic::memoised(std::function<double(double)> function) {
    constexpr std::size_t listBound = 256;
    const auto memo = std::make_shared<PexPrecalc<double>>(listBound);
    return [memo, function = std::move(function)](double x) {
        return memo->getValueOrCalc(decimalText(x), [&] { return function(x); });
    };
}

} // namespace pex
