#pragma once

#include <new>
#include <stop_token>

namespace pex {

/// Ends an operation half-way, as if memory had run out: all operations survive that.
class Stopped : public std::bad_alloc {
  public:
    const char* what() const noexcept override { return "stopped"; }
};

/// While it lives, what this thread has the library do can be stopped by another one: loops on all cores,
/// rows that are decoded, and searches look at the token between two pieces of their work. For callers who
/// drop what a stopped operation gives, and catch what it throws.
class StopScope {
  public:
    explicit StopScope(const std::stop_token& token);
    ~StopScope();
    StopScope(const StopScope&) = delete;
    StopScope& operator=(const StopScope&) = delete;

    /// Of the innermost scope of this thread; one that never stops outside of any.
    static const std::stop_token& current();

  private:
    const std::stop_token* before_;
};

/// Throws `Stopped` when this thread is asked to stop.
inline void stopIfAsked() {
    if (StopScope::current().stop_requested()) throw Stopped();
}

} // namespace pex
