#pragma once

#include "peximage/platform/Export.h"

#include <coroutine>

namespace pex {

/// Awaiting it moves a coroutine to one of the process's worker threads.
struct PEX_EXPORT Background {
    /// @cond
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> suspended) const;
    void await_resume() const noexcept {}
    /// @endcond
};

/// `co_await onBackground();` goes on there.
inline Background onBackground() { return {}; }

} // namespace pex
