#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <optional>

namespace pex {

/// A search by bisection for the argument whose function value is nearest to a target, for functions that
/// grow (or fall) steadily, such as a file's size over its quality. A value; `search` may be called from many
/// threads when the function may.
struct PEX_EXPORT PexDicotomic {
    /// The interval that is searched.
    double low = 0;
    /// The upper end.
    double high = 1;
    /// The value wanted. Distances are measured relative to it, so it should not be 0.
    double target = 0;
    /// Carried along for those who keep such records; the search does not use it.
    double valueTolerance = 0.001;
    /// An interval shorter than this is not divided any more.
    double intervalTolerance = 0.01;
    /// Is asked for the same argument more than once: give a `memoised` one where an answer is dear.
    std::function<double(double)> function = {};

    /// The best argument in [from, to], where an absent bound is the record's own. Prints the line
    /// "PexDicotomic: from - to" for every interval it looks at. Where the function is not steady the search
    /// still ends, at one of the arguments asked for. Without a function it gives the lower bound.
    double search(std::optional<double> from = {}, std::optional<double> to = {}) const;

    /// The same function, computed once for each argument; the last 256 answers are kept. The result is not
    /// for several threads at once.
    static std::function<double(double)> memoised(std::function<double(double)> function);
};

} // namespace pex
