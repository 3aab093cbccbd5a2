#pragma once

#include "peximage/platform/foundation/ForkSafe.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>

namespace pex {

/// Threads for work that may take long or wait, for a disk or for other work. They start as work comes
/// in. A pool is made with `new` and never destroyed, since work may be handed over while the process
/// ends. Any thread.
class ThreadPool : private ForkAware {
  public:
    using Work = std::function<void()>;
    using Seconds = std::chrono::duration<double>;

    /// A pool of at most so many working threads; threads that wait for other work are not counted.
    explicit ThreadPool(int mostThreads);

    /// Runs the work on one of the threads; `first` puts it before other work. Runs it on the
    /// caller's thread when the system gives no threads at all. What the work throws is dropped.
    void run(Work work, bool first = false);

    /// Work that goes on elsewhere counts as unfinished until the last copy of this is gone.
    std::shared_ptr<void> hold();
    /// Waits until all work is done. False when that takes longer, and at once on a thread of the
    /// pool.
    bool wait(Seconds patience);
    /// Waits that long for the running and queued work. Unfinished and later work is dropped.
    void end(Seconds patience);

    /// The pool that this thread belongs to; null for other threads.
    static ThreadPool* ofThisThread();
    /// Called on a thread of the pool: waits until the flag is set and `lookAgain` was called after
    /// that. Meanwhile another thread takes this one's place; if no other can be had, this one runs
    /// queued work while it waits.
    void waitFor(const std::atomic<bool>& flag);
    void lookAgain();

  private:
    void startOverInChild() override;
    bool queue(Work& work, bool first);
    void startThreadIfNeeded();
    void work();
    void runNext(std::unique_lock<std::mutex>& lock);
    bool hasWork() const { return !hasEnded_ && !(first_.empty() && others_.empty()); }
    bool waitUntil(std::unique_lock<std::mutex>& lock, Seconds patience,
                   const std::function<bool()>& isQuiet);

    const int mostThreads_;
    std::condition_variable added_, freed_, ended_; // work; a thread that waits; running work
    std::deque<Work> first_, others_;
    int threads_ = 0, idle_ = 0, blocked_ = 0, running_ = 0, held_ = 0;
    bool hasEnded_ = false;
    /// A parent's work. A child must neither run nor destroy it: what it holds may be locked.
    std::list<std::deque<Work>> inherited_;
};

} // namespace pex
