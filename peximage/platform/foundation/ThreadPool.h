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

/// Threads for work that may take long and wait: for a disk, for other work. They are started as work comes
/// in. Never destroyed, since work is handed over also while the process ends: to be made by `new`. Any
/// thread.
class ThreadPool : private ForkAware {
  public:
    using Work = std::function<void()>;
    using Seconds = std::chrono::duration<double>;

    /// So many work at once; those who wait for other work are not counted.
    explicit ThreadPool(int mostThreads);

    /// Runs the work on one of the threads, `first` before what is not; on the caller's when the system gives
    /// none at all. What the work throws is dropped.
    void run(Work work, bool first = false);

    /// Until its last copy is gone, something counts as unfinished that goes on elsewhere.
    std::shared_ptr<void> hold();
    /// Waits until nothing is left to do; false when this takes longer, and at once on a thread of the pool.
    bool wait(Seconds patience);
    /// Waits for what runs and is queued, but no longer; what is left, or comes later, is dropped.
    void end(Seconds patience);

    /// The pool that this thread belongs to; null when it is none of a pool's.
    static ThreadPool* ofThisThread();
    /// On a thread of the pool: returns when the flag is set and `lookAgain` was called after that. Meanwhile
    /// another thread has this one's place; where there is none to be had, this one goes on with the work.
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
    /// A parent's work is not the child's to do, nor to destroy: what it holds may be locked.
    std::list<std::deque<Work>> inherited_;
};

} // namespace pex
