#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <functional>

namespace pex {

/// Work for the main thread: the thread that first calls anything here, or the one that the application names
/// with `becomeMain`. On it blocks run at once; from other threads they queue, in order, until the
/// application drains the queue: by hand, or from its event loop, which `setWakeUp` lets know. In a forked
/// child the thread that forked is the main thread, and its parent's blocks are gone.
class PEX_EXPORT XMain {
  public:
    /// Makes the calling thread the main thread. To be called before other threads hand over work.
    static void becomeMain();
    /// Whether the calling thread is the main thread.
    static bool isMain();

    /// On the main thread runs the block at once; from another thread queues it and returns.
    static void execute(std::function<void()> block);
    /// Runs the block on the main thread and returns after it ran; throws what it throws. From another thread
    /// this waits until the main thread drains the queue.
    static void sync(const std::function<void()>& block);

    /// Runs the blocks that are queued at this moment; returns how many. On other threads does nothing. What
    /// a block of `execute` throws is dropped.
    static std::size_t drain();
    /// Waits until a block is queued, then drains. On other threads does nothing.
    static void waitAndDrain();
    /// What to call, from whatever thread, each time a block is queued: it should make the event loop call
    /// `drain` soon. It must not call back into this class. Empty: nothing.
    static void setWakeUp(std::function<void()> wakeUp);
};

} // namespace pex
