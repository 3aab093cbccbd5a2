#pragma once

#include "peximage/platform/codecs/jpeg/encode/Encoder.h"

#include <map>
#include <memory>

namespace pex::jpeg {

/// Answers a bisection that looks for the quality whose file is nearest a target size below a byte budget.
///
/// A bisection needs exact sizes only of the two neighbouring qualities that the target lies between. At the
/// first question these are found from estimates and then encoded; about all other qualities it is enough to
/// say on which side of them they lie. For every picture whose files grow with the quality the bisection thus
/// takes the same course as with exact sizes, at the price of little more than two encodings. Small
/// pictures are encoded at every quality asked for.
///
/// An object serves one thread at a time.
class BudgetSizes {
  public:
    /// `target` is meant to be a little below `budget`. The bisection halves [0, 1] until intervals are
    /// shorter than `tolerance`.
    BudgetSizes(std::shared_ptr<Encoder> encoder, double budget, double target, double tolerance);

    /// The exact size of the file at `quality` where the bisection could depend on it: at the two neighbours,
    /// at 0 and 1 unless these are surely small and large enough, and where files seem as large as the nearer
    /// neighbour's. Elsewhere a number below that of the lower neighbour, or above that of the upper
    /// neighbour and not below the budget; the further off, the further away.
    double sizeForSearch(double quality);

  private:
    struct Neighbours {
        double lower, upper;
    };

    bool isFlat(double lower, double higher);
    void findNeighbours();
    Neighbours bisect(double correction);
    double nextToMakeExact(double correction);
    /// The exact size when it is known, else an estimate multiplied by `correction`.
    double estimate(double quality, double correction);
    double roughly(double quality);
    double exact(double quality);

    std::shared_ptr<Encoder> encoder_;
    double budget_, target_, tolerance_;
    std::map<double, double> estimates_;
    Neighbours neighbours_{-1, -1};
};

} // namespace pex::jpeg
