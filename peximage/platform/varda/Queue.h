#pragma once

#include "peximage/platform/Export.h"

#include <functional>

namespace pex {

/// Work off the caller's thread.
class PEX_EXPORT Queue {
  public:
    /// What an application may run the library's background work on: it calls the work once, on some other
    /// thread, soon.
    using Executor = std::function<void(std::function<void()> work)>;

    /// Runs the work asynchronously, never on the caller's stack; `fast` asks for it to come before work that
    /// is not fast. Any thread.
    static void execute(bool fast, std::function<void()> work);

    /// Replaces the library's own small pool; an empty one brings it back. Work that was already handed over
    /// stays where it is.
    static void setExecutor(Executor executor);
};

} // namespace pex
