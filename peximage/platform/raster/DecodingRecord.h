#pragma once

#include "peximage/platform/foundation/ForkSafe.h"

#include <algorithm>
#include <mutex>
#include <optional>

namespace pex {

/// How much of a picture was found in its file.
struct Completeness {
    double shown = 1;    // the share of its rows that show something of it
    bool isSound = true; // no row is missing, and none came from damaged bytes
};

/// The worst that any decoding of a picture has found, whole, reduced or row by row. A source shares its
/// record with its row readers, its images and the source that turns it upright. Safe from any thread.
class DecodingRecord {
  public:
    void add(const Completeness& met) {
        const std::lock_guard lock(mutex_);
        if (!worst_) worst_.emplace();
        worst_->shown = std::min(worst_->shown, met.shown);
        worst_->isSound = worst_->isSound && met.isSound && met.shown >= 1;
    }

    /// Absent before the first decoding came to its end or met damage.
    std::optional<Completeness> met() const {
        const std::lock_guard lock(mutex_);
        return worst_;
    }

  private:
    mutable ForkSafeMutex mutex_;
    std::optional<Completeness> worst_;
};

} // namespace pex
