#pragma once

#include "peximage/platform/foundation/ForkSafe.h"

#include <mutex>
#include <utility>

namespace pex {

/// A value that threads read and replace as a whole.
template <class T>
class Guarded {
  public:
    T get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }
    /// Replaces the value; the old one is destroyed after unlocking.
    void set(T value) {
        const std::lock_guard lock(mutex_);
        std::swap(value_, value);
    }

  private:
    mutable ForkSafeMutex mutex_;
    T value_{};
};

} // namespace pex
