#include "peximage/platform/foundation/ThreadPool.h"

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <exception>
#include <new>
#include <thread>
#include <utility>

namespace pex {
namespace {

thread_local ThreadPool* poolOfThisThread = nullptr;

/// Runs work with the thread's last reason cleared, so that no reason of earlier work appears in it.
void runAlone(const ThreadPool::Work& work) noexcept {
    giveReason(ReasonCode::none, {});
    try {
        work();
    } catch (...) { // nobody could catch it
    }
}

} // namespace

ThreadPool::ThreadPool(int mostThreads) : mostThreads_(mostThreads) {}

ThreadPool* ThreadPool::ofThisThread() { return poolOfThisThread; }

void ThreadPool::run(Work work, bool first) {
    work = underCurrentWork(std::move(work));
    if (!queue(work, first)) runAlone(work);
}

/// Queues the work. False when no thread can be had and the caller has to do it.
bool ThreadPool::queue(Work& work, bool first) {
    {
        const std::lock_guard lock(mutex_);
        if (hasEnded_) return true;
        startThreadIfNeeded();
        if (threads_ == 0) return false;
        try {
            (first ? first_ : others_).push_back(std::move(work));
        } catch (const std::bad_alloc&) {
            return false;
        }
        if (threads_ == blocked_) freed_.notify_all();
    }
    added_.notify_one();
    return true;
}

/// Called with the lock held, when work was added.
void ThreadPool::startThreadIfNeeded() {
    const std::size_t queued = first_.size() + others_.size();
    if (queued < static_cast<std::size_t>(idle_) || threads_ - blocked_ >= mostThreads_) return;
    try {
        std::thread([this] { work(); }).detach();
        ++threads_;
    } catch (const std::exception&) { // no thread, or no memory for one: the existing threads do the work
    }
}

void ThreadPool::work() {
    poolOfThisThread = this;
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        added_.wait(lock, [this] { return hasWork(); });
        --idle_;
        runNext(lock);
    }
}

void ThreadPool::runNext(std::unique_lock<std::mutex>& lock) {
    ++running_;
    {
        auto& from = first_.empty() ? others_ : first_;
        const Work next = std::move(from.front());
        from.pop_front();
        lock.unlock();
        runAlone(next);
    }
    lock.lock();
    --running_;
    ended_.notify_all();
}

void ThreadPool::waitFor(const std::atomic<bool>& flag) {
    std::unique_lock lock(mutex_);
    ++blocked_;
    if (hasWork()) startThreadIfNeeded();
    while (!flag) {
        if (threads_ == blocked_ && hasWork())
            runNext(lock);
        else
            freed_.wait(lock);
    }
    --blocked_;
}

void ThreadPool::lookAgain() {
    { const std::lock_guard lock(mutex_); } // not between a look and the wait
    freed_.notify_all();
}

std::shared_ptr<void> ThreadPool::hold() {
    const unsigned generation = LongHeldMutex::currentGeneration();
    {
        const std::lock_guard lock(mutex_);
        ++held_;
    }
    return {this, [this, generation](void*) {
                if (generation != LongHeldMutex::currentGeneration()) return; // a parent's
                {
                    const std::lock_guard lock(mutex_);
                    --held_;
                }
                ended_.notify_all();
            }};
}

bool ThreadPool::wait(Seconds patience) {
    std::unique_lock lock(mutex_);
    return poolOfThisThread != this &&
           waitUntil(lock, patience, [this] { return running_ == 0 && held_ == 0 && !hasWork(); });
}

void ThreadPool::end(Seconds patience) {
    std::unique_lock lock(mutex_);
    const int own = poolOfThisThread == this ? 1 : 0; // the thread that ends the process may be running work
    waitUntil(lock, patience, [&] { return running_ <= own && !hasWork(); });
    hasEnded_ = true;
}

bool ThreadPool::waitUntil(std::unique_lock<std::mutex>& lock, Seconds patience,
                           const std::function<bool()>& isQuiet) {
    constexpr Seconds aYear{365.0 * 24 * 3600};
    const bool isPatient = patience > Seconds(0); // not so if it is no number
    return ended_.wait_for(lock, isPatient ? std::min(patience, aYear) : Seconds(0), isQuiet);
}

void ThreadPool::startOverInChild() {
    inherited_.push_back(std::exchange(first_, {}));
    inherited_.push_back(std::exchange(others_, {}));
    ::new (&added_) std::condition_variable;
    ::new (&freed_) std::condition_variable;
    ::new (&ended_) std::condition_variable;
    threads_ = running_ = poolOfThisThread == this ? 1 : 0;
    idle_ = blocked_ = held_ = 0;
}

} // namespace pex
