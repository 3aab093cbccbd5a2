#pragma once

#include <algorithm>
#include <chrono>

namespace pex {

/// Dates of requests in their order: each is later than all before, also when the clock is set back.
class RequestDates {
  public:
    /// A moment of the system's clock.
    using Date = std::chrono::system_clock::time_point;

    /// The moment given, or one tick after the last date where that is not later.
    Date next(Date now = std::chrono::system_clock::now()) {
        return last_ = std::max(now, last_ + Date::duration(1));
    }

  private:
    Date last_{};
};

} // namespace pex
