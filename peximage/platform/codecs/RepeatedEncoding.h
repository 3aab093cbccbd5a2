#pragma once

#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/geometry/CGSize.h"

#include <optional>

namespace pex {

/// One picture that is encoded at one quality after another, for who looks for the quality of a size.
/// Qualities are 0 … 1, 1 best. An object serves one thread at a time.
class RepeatedEncoding {
  public:
    virtual ~RepeatedEncoding() = default;

    /// Of the picture, in pixels.
    virtual CGSize size() const = 0;
    /// The file; absent where it cannot be made.
    virtual std::optional<Data> encode(double quality) = 0;
    /// The length of the file in bytes; 0 where it cannot be made.
    virtual long long byteCount(double quality) = 0;

    /// A bisection that halves [0, 1] until intervals are shorter than `tolerance`, for the file that is
    /// nearest to `target` bytes, a little below `budget`.
    struct Search {
        double budget;    ///< In bytes.
        double target;    ///< In bytes.
        double tolerance; ///< Of qualities.
    };
    /// Says which search `sizeForSearch` is going to answer.
    virtual void prepare(const Search&) {}
    /// The length as far as the search needs it: it may be an estimate where the search takes the same course
    /// with it.
    virtual double sizeForSearch(double quality) { return static_cast<double>(byteCount(quality)); }
};

} // namespace pex
