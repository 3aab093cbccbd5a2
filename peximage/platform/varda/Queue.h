#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <limits>
#include <memory>

namespace pex {

/// Work off the caller's thread.
///
/// What was handed over before the process ends (by `exit`, or by returning from `main`) is still done,
/// within `setPatienceAtExit`; it should not use what the application destroys then. A forked child has none
/// of its parent's work, and threads of its own.
class PEX_EXPORT Queue {
  public:
    /// What an application may run the library's background work on: it calls the work once, on some other
    /// thread, soon.
    using Executor = std::function<void(std::function<void()> work)>;

    /// Runs the work asynchronously, not on the caller's stack unless the system gives no thread at all;
    /// `fast` asks for it to come before work that is not fast. What the work throws is dropped. Any thread.
    static void execute(bool fast, std::function<void()> work);

    /// Replaces the library's own small pool; an empty one brings it back. Work that was already handed over
    /// stays where it is.
    static void setExecutor(Executor executor);

    /// Waits until all is done that was handed over, what this hands over itself, and what goes on elsewhere
    /// meanwhile: transfers. False when that takes longer, and at once within such work.
    static bool wait(double seconds = std::numeric_limits<double>::infinity());
    /// Until its last copy is gone, something counts for `wait` as work that is not done.
    static std::shared_ptr<void> hold();

    /// How long the end of the process waits for the work of the library's own pool; 10 seconds at first.
    /// Transfers are not waited for.
    static void setPatienceAtExit(double seconds);
};

} // namespace pex
