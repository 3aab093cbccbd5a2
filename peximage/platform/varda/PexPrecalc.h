#pragma once

#include "peximage/platform/foundation/ForkSafe.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

namespace pex {

/// A memo table: the value of a key is computed once and then remembered. It keeps at most `listBound`
/// entries; the oldest one makes room. With `threadSafe` any thread may use it, and a key is computed by one
/// thread while the others wait; without, one thread at a time.
template <class Value>
class PexPrecalc {
  public:
    /// An empty table; with a bound of 0 nothing is remembered.
    explicit PexPrecalc(std::size_t listBound, bool threadSafe = false)
        : listBound_(listBound), threadSafe_(threadSafe) {}

    /// The remembered value of `key`, or that of `closure()`, which is then remembered.
    template <class Closure>
    Value getValueOrCalc(const std::string& key, Closure&& closure) {
        std::unique_lock lock(mutex_, std::defer_lock);
        if (threadSafe_) lock.lock();
        if (const auto known = values_.find(key); known != values_.end()) return known->second;
        Value value = closure();
        if (listBound_ > 0) remember(key, value);
        return value;
    }

  private:
    void remember(const std::string& key, const Value& value) {
        const ForkPass pass;
        if (order_.size() == listBound_) {
            values_.erase(order_.front());
            order_.pop_front();
        }
        order_.push_back(key);
        values_.emplace(key, value);
    }

    std::size_t listBound_;
    bool threadSafe_;
    LongHeldMutex mutex_; // also while a value is computed
    std::deque<std::string> order_;
    std::unordered_map<std::string, Value> values_;
};

} // namespace pex
