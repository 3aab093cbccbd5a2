#pragma once

#include <chrono>
#include <functional>

namespace pex {

/// Fork and join over the processor's cores. The worker threads start when they are first needed and sleep
/// between two calls; a program that never works in parallel has none, and a forked child starts its own. Any
/// thread, also from within such work.
class Workers {
  public:
    /// How many threads work on one call at once, the caller among them (Threads.h); it may change between
    /// two calls.
    static int count();
    /// The most that it can ever be: who has memory for each thread has so much of it.
    static int mostCount();

    /// Calls `work(index, slot)` for every index from 0 to `count` − 1 and returns when all are done. The
    /// caller takes part. `slot`, from 0 to `Workers::mostCount()` − 1, belongs to one thread during the
    /// call, so that each can have memory of its own. What one of the calls throws, the caller throws, when
    /// all that were begun have ended; few more are begun then. A reason that one of them was given is left
    /// to the caller. The work must not fork.
    static void forEach(int count, const std::function<void(int index, int slot)>& work);

    /// Runs the task on one of the workers, soon; on the caller's thread when no other can be had. It must
    /// not wait for other tasks, and what it throws is dropped.
    static void run(std::function<void()> task);

    /// Has a worker call the hook when none of them has had work for so long, once after each busy time: the
    /// place to give back what is kept for the next call. There is one hook; it must not throw.
    static void whenIdle(std::chrono::milliseconds quiet, std::function<void()> hook);

    /// For tests and measurements: so many threads in a call of `forEach`, while it lives. Not from
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
