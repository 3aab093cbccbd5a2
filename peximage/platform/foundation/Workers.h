#pragma once

#include <chrono>
#include <functional>

namespace pex {

/// Runs loops on all cores. Worker threads start when they are first needed and sleep between calls; a
/// forked child starts its own. Any thread may call this, and the work itself may.
class Workers {
  public:
    /// How many threads work on one call at once, the caller among them (Threads.h); it may change between
    /// two calls.
    static int count();
    /// The largest value that `count` can have; memory for each thread is sized by it.
    static int mostCount();

    /// Calls `work(index, slot)` for every index from 0 to `count` − 1 and returns when all are done.
    /// The caller takes part. `slot`, from 0 to `Workers::mostCount()` − 1, belongs to one thread
    /// during the call, so that each thread can have memory of its own. If a call throws, hardly any
    /// more are begun, and the exception is thrown to the caller when all have ended. The caller also
    /// gets the last reason that one of them was given. The work must not fork.
    static void forEach(int count, const std::function<void(int index, int slot)>& work);

    /// Runs the task on one of the workers, soon; on the caller's thread when no other can be had. It must
    /// not wait for other tasks, and what it throws is dropped.
    static void run(std::function<void()> task);

    /// Sets what a worker calls once after each busy time, when no worker has had work for so long:
    /// the place to free what is kept for the next call. There is one hook; it must not throw.
    static void whenIdle(std::chrono::milliseconds quiet, std::function<void()> hook);

    /// Limits the threads of `forEach` while it lives, for tests and measurements. Not to be used by
    /// several threads at once.
    class Limit {
      public:
        explicit Limit(int threads);
        ~Limit();
        Limit(const Limit&) = delete;
        Limit& operator=(const Limit&) = delete;

      private:
        int before_;
    };
};

} // namespace pex
