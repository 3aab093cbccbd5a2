#pragma once

#include "peximage/platform/foundation/Reason.h"

namespace pex {

/// How many reasons this thread was given so far.
unsigned reasonsGiven() noexcept;

/// Tells whether this thread is given a reason while it lives.
class ReasonWatch {
  public:
    bool hasSeen() const noexcept { return reasonsGiven() != before_; }
    /// True when the last of them is lack of memory or the wish to stop, and no fault of a picture.
    bool hasSeenBreak() const noexcept {
        const ReasonCode code = hasSeen() ? lastReason().code : ReasonCode::none;
        return code == ReasonCode::outOfMemory || code == ReasonCode::cancelled;
    }

  private:
    unsigned before_ = reasonsGiven();
};

/// Without memory for the message the code stands alone.
void copyReason(const Reason& from, Reason& to) noexcept;

} // namespace pex
