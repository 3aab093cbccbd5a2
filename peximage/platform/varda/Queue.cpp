#include "peximage/platform/varda/Queue.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace pex {
namespace {

/// More than most machines need for computing: much of the work waits for a disk or a network.
constexpr std::size_t mostThreads = 4;
/// How long the end of the process waits for work that is running.
constexpr std::chrono::seconds patienceAtExit{1};

thread_local bool isWorker = false;

/// Threads are started as work comes in. When the process ends, what has not begun is dropped.
class Pool {
  public:
    void execute(bool fast, std::function<void()> work);
    void setExecutor(Queue::Executor executor);
    void end();

    /// The process forks while no other thread changes the pool; the child has none of the threads, and so
    /// starts over with a new pool.
    void lockForFork() { mutex_.lock(); }
    void unlockAfterFork() { mutex_.unlock(); }
    static Pool* makeForChild(Pool* parents);

  private:
    void startThread();
    void run();
    std::function<void()> take();

    std::mutex mutex_;
    std::condition_variable changed_, stopped_;
    Queue::Executor executor_;
    std::deque<std::function<void()>> fast_, slow_;
    std::vector<std::thread> threads_;
    std::size_t idle_ = 0, alive_ = 0;
    bool ending_ = false;
    Pool* parents_ = nullptr;
};

/// Never freed: other objects may hand over work while they are destroyed at the end of the process.
Pool* pool = nullptr;

void makePool() {
    pool = new Pool;
    std::atexit([] { pool->end(); });
    ::pthread_atfork([] { pool->lockForFork(); }, [] { pool->unlockAfterFork(); },
                     [] { pool = Pool::makeForChild(pool); });
}

Pool& sharedPool() {
    static std::once_flag made;
    std::call_once(made, makePool);
    return *pool;
}

Pool* Pool::makeForChild(Pool* parents) {
    Pool* fresh = new Pool;
    fresh->executor_ = parents->executor_;
    fresh->parents_ = parents; // reachable still: its threads can be neither joined nor forgotten
    return fresh;
}

void Pool::execute(bool fast, std::function<void()> work) {
    std::unique_lock lock(mutex_);
    if (ending_) return;
    if (executor_) {
        const Queue::Executor executor = executor_;
        lock.unlock();
        return executor(std::move(work));
    }
    (fast ? fast_ : slow_).push_back(std::move(work));
    if (fast_.size() + slow_.size() > idle_ && threads_.size() < mostThreads) startThread();
    changed_.notify_one();
}

void Pool::startThread() {
    try {
        threads_.emplace_back([this] { run(); });
        ++alive_;
    } catch (const std::system_error&) { // the threads there are, or the next try, will do the work
    }
}

void Pool::run() {
    isWorker = true;
    while (const std::function<void()> work = take())
        work();
    const std::lock_guard lock(mutex_);
    --alive_;
    stopped_.notify_all();
}

/// Waits for the next work; empty when the process ends.
std::function<void()> Pool::take() {
    std::unique_lock lock(mutex_);
    ++idle_;
    changed_.wait(lock, [this] { return ending_ || !fast_.empty() || !slow_.empty(); });
    --idle_;
    if (ending_) return {};
    auto& next = fast_.empty() ? slow_ : fast_;
    std::function<void()> work = std::move(next.front());
    next.pop_front();
    return work;
}

void Pool::end() {
    std::unique_lock lock(mutex_);
    ending_ = true;
    changed_.notify_all();
    const std::size_t own = isWorker ? 1 : 0; // work may end the process itself
    const bool allStopped = stopped_.wait_for(lock, patienceAtExit, [&] { return alive_ <= own; });
    lock.unlock();
    for (std::thread& thread : threads_) {
        if (allStopped && own == 0)
            thread.join();
        else
            thread.detach();
    }
}

void Pool::setExecutor(Queue::Executor executor) {
    const std::lock_guard lock(mutex_);
    executor_.swap(executor);
}

} // namespace

void Queue::execute(bool fast, std::function<void()> work) {
    if (work) sharedPool().execute(fast, std::move(work));
}

void Queue::setExecutor(Executor executor) { sharedPool().setExecutor(std::move(executor)); }

} // namespace pex
