#include "peximage/platform/foundation/ForkSafe.h"

#include <new>
#include <pthread.h>
#include <vector>

namespace pex {
namespace {

constinit std::atomic<int> threadsWithPass{0};
constinit std::atomic<int> forksUnderWay{0};
constinit std::atomic<unsigned> generation{0};
constinit thread_local int ownPasses = 0;

/// All living objects; changed with a pass.
ForkSafeMutex awareMutex;
std::vector<ForkAware*>& aware() {
    static auto& all = *new std::vector<ForkAware*>;
    return all;
}

} // namespace

struct ForkHandlers {
    static void before() {
        const int own = ownPasses > 0 ? 1 : 0;
        ++forksUnderWay;
        for (int out = threadsWithPass; out > own; out = threadsWithPass)
            threadsWithPass.wait(out);
        ++ownPasses; // until it has forked, this thread need not wait for passes
        for (ForkAware* one : aware())
            one->mutex_.lock();
    }

    static void inParent() {
        for (ForkAware* one : aware())
            one->mutex_.unlock();
        --ownPasses;
        --forksUnderWay;
        forksUnderWay.notify_all();
    }

    static void inChild() {
        ++generation;
        for (ForkAware* one : aware()) {
            one->startOverInChild();
            one->mutex_.unlock();
        }
        --ownPasses;
        threadsWithPass = ownPasses > 0 ? 1 : 0;
        forksUnderWay = 0;
    }
};

namespace {
[[maybe_unused]] const int registered =
    ::pthread_atfork(ForkHandlers::before, ForkHandlers::inParent, ForkHandlers::inChild);
} // namespace

ForkAware::ForkAware() {
    const std::lock_guard lock(awareMutex);
    aware().push_back(this);
}

ForkAware::~ForkAware() {
    const std::lock_guard lock(awareMutex);
    std::erase(aware(), this);
}

void ForkPass::enter() noexcept {
    if (ownPasses++ > 0) return;
    for (;;) {
        ++threadsWithPass;
        const int forks = forksUnderWay;
        if (forks == 0) return;
        --threadsWithPass;
        threadsWithPass.notify_all();
        forksUnderWay.wait(forks);
    }
}

void ForkPass::leave() noexcept {
    if (--ownPasses > 0) return;
    --threadsWithPass;
    threadsWithPass.notify_all();
}

unsigned LongHeldMutex::currentGeneration() noexcept { return generation.load(std::memory_order_acquire); }

void LongHeldMutex::renew() {
    static constinit ForkSafeMutex renewing;
    const std::lock_guard lock(renewing);
    if (generation_ == generation) return;
    ::new (&mutex_) std::mutex; // the thread that held the old one does not exist here
    generation_ = generation.load();
}

} // namespace pex
