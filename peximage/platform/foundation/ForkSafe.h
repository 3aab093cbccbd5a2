#pragma once

#include "peximage/platform/Export.h"

#include <atomic>
#include <mutex>

/// `fork` copies the calling thread alone. What other threads were just changing would stay half-changed in
/// the child, and what they had locked locked for good; so that a program may fork whenever it likes,
/// whatever all threads share is guarded by one of these.
namespace pex {

/// Held while a thread changes what others see. A fork waits until nobody holds one, and whoever wants one
/// waits for the fork: for a few statements that wait for nothing else. May be held more than once.
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

/// A mutex that comes with a pass: a child always finds it free, and whole what it guards. For a few
/// statements that wait for nothing else and call nothing of the application's.
class PEX_EXPORT ForkSafeMutex {
  public:
    void lock() {
        ForkPass::enter();
        mutex_.lock();
    }
    void unlock() {
        mutex_.unlock();
        ForkPass::leave();
    }

  private:
    std::mutex mutex_;
};

/// A mutex that may be held for long. A fork does not wait for the holder, who does not exist in the child:
/// there it is free. What it guards is changed with a pass.
class PEX_EXPORT LongHeldMutex {
  public:
    void lock() {
        if (generation_.load(std::memory_order_acquire) != currentGeneration()) renew();
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }

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
