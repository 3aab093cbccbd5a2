#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <limits>
#include <memory>

namespace pex {

/// Runs work on background threads.
///
/// When the process ends (by `exit`, or by returning from `main`), work that was handed over before is still
/// done, within the time of `setPatienceAtExit`. It should not use what the application destroys then. A
/// forked child has threads of its own and none of its parent's work.
class PEX_EXPORT Queue {
  public:
    /// Runs the library's background work for an application: has to call the work once, soon, on another
    /// thread.
    using Executor = std::function<void(std::function<void()> work)>;

    /// Hands work over and returns; `fast` work comes before other work. Only when the system gives no thread
    /// at all, the work runs before this returns. What the work throws is dropped. Any thread.
    static void execute(bool fast, std::function<void()> work);

    /// Replaces the library's own small pool; an empty one brings it back. Work that was already handed over
    /// stays where it is.
    static void setExecutor(Executor executor);

    /// Waits until all work is done: what was handed over, what that hands over itself, and transfers. False
    /// when it takes longer than so many seconds, and at once when called from such work.
    static bool wait(double seconds = std::numeric_limits<double>::infinity());
    /// `wait` waits until the last copy of the result is gone.
    static std::shared_ptr<void> hold();

    /// How long the end of the process waits for the work of the library's own pool; 10 seconds at first.
    /// Transfers are not waited for.
    static void setPatienceAtExit(double seconds);
};

} // namespace pex
