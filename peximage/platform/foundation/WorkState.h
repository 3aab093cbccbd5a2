#pragma once

#include "peximage/platform/foundation/WorkControl.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <stop_token>
#include <utility>

namespace pex {

/// What a `WorkControl` or a limit on time set.
struct WorkState {
    using Clock = std::chrono::steady_clock;

    const std::stop_token stop;
    const Clock::time_point end = Clock::time_point::max(); // work stops then, too
};

/// Null when nobody controls this thread's work.
std::shared_ptr<const WorkState> currentWork() noexcept;

/// Puts a thread under the control that another one is under, while it lives.
class SharedWork {
  public:
    explicit SharedWork(std::shared_ptr<const WorkState> state) noexcept;
    ~SharedWork();
    SharedWork(const SharedWork&) = delete;
    SharedWork& operator=(const SharedWork&) = delete;

  private:
    std::shared_ptr<const WorkState> before_;
};

/// Work for another thread, to be done under this one's control.
std::function<void()> underCurrentWork(std::function<void()> work);

/// Takes work out of the operation that is stopped; it becomes an absent result where lack of memory does.
class WorkStopped : public std::exception {
  public:
    const char* what() const noexcept override { return "stopped"; }
};

/// For long loops, and for calls that end early when this is true.
bool isWorkStopped() noexcept;
/// Throws `WorkStopped` when this thread's work is to stop.
void endIfStopped();

} // namespace pex
