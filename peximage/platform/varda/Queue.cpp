#include "peximage/platform/varda/Queue.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/Guarded.h"
#include "peximage/platform/foundation/ThreadPool.h"

#include <atomic>
#include <cstdlib>
#include <utility>

namespace pex {
namespace {

/// More than most machines need for computing: much of the work waits for a disk.
constexpr int mostThreads = 4;

std::atomic<double> patienceAtExit{10};

ThreadPool& makePool();

/// Never freed: other objects may hand over work while they are destroyed at the end of the process.
ThreadPool& pool() {
    const ForkPass pass; // a fork now would leave it half made
    static ThreadPool& instance = makePool();
    return instance;
}

ThreadPool& makePool() {
    auto& made = *new ThreadPool(mostThreads);
    std::atexit([] { pool().end(ThreadPool::Seconds(patienceAtExit)); });
    return made;
}

Guarded<Queue::Executor>& executorInUse() {
    const ForkPass pass; // a fork now would leave it half made
    static auto& instance = *new Guarded<Queue::Executor>;
    return instance;
}

} // namespace

void Queue::execute(bool fast, std::function<void()> work) {
    if (!work) return;
    const Executor executor = executorInUse().get();
    if (!executor) return pool().run(std::move(work), fast);
    executor([work = std::move(work), held = hold()] {
        try {
            work();
        } catch (...) { // nobody could catch it
        }
    });
}

void Queue::setExecutor(Executor executor) { executorInUse().set(std::move(executor)); }

bool Queue::wait(double seconds) { return pool().wait(ThreadPool::Seconds(seconds)); }

std::shared_ptr<void> Queue::hold() { return pool().hold(); }

void Queue::setPatienceAtExit(double seconds) { patienceAtExit = seconds; }

} // namespace pex
