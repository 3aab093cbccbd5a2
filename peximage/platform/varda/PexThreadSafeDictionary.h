#pragma once

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/varda/Queue.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

namespace pex {

/// A dictionary that any thread may use at any time.
template <class Key, class Value>
class PexThreadSafeDictionary {
  public:
    /// What a change calls.
    using ChangeCallback = std::function<void()>;

    /// The callback, where there is one, is called after every `set`. It may use the dictionary.
    explicit PexThreadSafeDictionary(ChangeCallback changed = {}) : changed_(std::move(changed)) {}

    /// Absent when the key has none.
    std::optional<Value> value(const Key& key) const {
        const std::lock_guard lock(mutex_);
        const auto found = values_.find(key);
        return found == values_.end() ? std::nullopt : std::optional(found->second);
    }

    /// Everyone who asks from now on gets the new value. With `deferred` the callback runs in the background,
    /// else on this thread before `set` returns.
    void set(const Key& key, Value value, bool deferred) {
        {
            const std::lock_guard lock(mutex_);
            std::swap(values_[key], value); // the old one is freed without the lock
        }
        if (changed_ && deferred)
            Queue::execute(false, changed_);
        else if (changed_)
            changed_();
    }

  private:
    mutable ForkSafeMutex mutex_;
    std::map<Key, Value> values_;
    ChangeCallback changed_;
};

} // namespace pex
