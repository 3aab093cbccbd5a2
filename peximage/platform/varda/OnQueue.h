#pragma once

#include "peximage/platform/varda/Queue.h"

#include <coroutine>

namespace pex {

/// Awaiting it moves a coroutine to a thread of the background queue. Unlike worker threads these may
/// wait for the network.
struct OnQueue {
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> suspended) const {
        Queue::execute(false, [suspended] { suspended.resume(); });
    }
    void await_resume() const noexcept {}
};

} // namespace pex
