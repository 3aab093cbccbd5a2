#pragma once

#include "peximage/platform/Export.h"

#include <atomic>
#include <mutex>

/// A forked child has only the thread that forked. What other threads were just changing would stay
/// half-changed there, and what they had locked would stay locked. The guards below prevent that for
/// everything that threads share, so that a program may fork at any time.
namespace pex {

/// Held while a thread changes shared data, for a few statements that wait for nothing else. A fork waits
/// until no thread holds one, and threads that want one wait for the fork. A thread may hold several.
class PEX_EXPORT ForkPass {
  public:
    ForkPass() noexcept { enter(); }
    ~ForkPass() { leave(); }
    ForkPass(const ForkPass&) = delete;
    ForkPass& operator=(const ForkPass&) = delete;

  private:
    friend class ForkSafeMutex;
    static void enter() noexcept;
    static void leave() noexcept;
};

/// A mutex that is held together with a pass: in a child it is always free, and what it guards is whole. For
/// a few statements that wait for nothing else and call nothing of the application's.
class PEX_EXPORT ForkSafeMutex {
  public:
    /// As of a `std::mutex`: for `std::lock_guard` and its like.
    /// @{
    void lock() {
        ForkPass::enter();
        mutex_.lock();
    }
    void unlock() {
        mutex_.unlock();
        ForkPass::leave();
    }
    /// @}

  private:
    std::mutex mutex_;
};

/// A mutex that may be held for long. A fork does not wait for the holder; in the child the mutex is free.
/// What it guards has to be changed with a pass.
class PEX_EXPORT LongHeldMutex {
  public:
    /// As of a `std::mutex`: for `std::lock_guard` and its like.
    /// @{
    void lock() {
        if (generation_.load(std::memory_order_acquire) != currentGeneration()) renew();
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }
    /// @}

    /// How many forks led to this process, from the one that loaded the library.
    static unsigned currentGeneration() noexcept;

  private:
    void renew();

    std::atomic<unsigned> generation_{currentGeneration()};
    std::mutex mutex_;
};

/// What threads wait in: a fork takes its mutex for as long as it lasts, and the child, where none of these
/// threads exists, has it start over. Never made or destroyed with its mutex held.
class PEX_EXPORT ForkAware {
  public:
    ForkAware(const ForkAware&) = delete;
    ForkAware& operator=(const ForkAware&) = delete;

  protected:
    ForkAware();
    virtual ~ForkAware();

    /// Held for a few statements that take no other lock.
    std::mutex mutex_;

  private:
    friend struct ForkHandlers;
    /// In the child, with the mutex held. Condition variables are to be made anew in their place: they count
    /// those who wait.
    virtual void startOverInChild() = 0;
};

} // namespace pex
