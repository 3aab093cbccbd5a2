#include "peximage/platform/foundation/DispatchQueue.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

namespace pex {

namespace {

template <class Block>
std::exception_ptr whatItThrows(const Block& block) noexcept {
    try {
        block();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

} // namespace

/// Every block takes a ticket when it comes in and runs when all earlier ones are done: `sync` blocks on
/// their caller's thread, `async` blocks on the worker. Without a worker, whoever ends a block or comes with
/// one goes on with those of `async` whose turn it is.
struct DispatchQueue::State : ForkAware {
    struct Waiting {
        std::uint64_t ticket;
        std::function<void()> block;
    };

    std::condition_variable changed;
    std::uint64_t nextTicket = 0;
    std::uint64_t running = 0; // the ticket whose turn it is
    std::thread::id runner;
    std::deque<Waiting> waiting;
    std::list<std::deque<Waiting>> inherited; // a parent's blocks, which a child must neither run nor destroy
    std::thread worker;
    bool ending = false;

    std::unique_lock<std::mutex> locked() { return std::unique_lock(mutex_); }

    /// Called with the lock held; the block runs without it. Gives what the block throws.
    std::exception_ptr run(std::unique_lock<std::mutex>& lock, const std::function<void()>& block) {
        runner = std::this_thread::get_id();
        lock.unlock();
        const std::exception_ptr thrown = whatItThrows(block);
        lock.lock();
        runner = {};
        ++running;
        changed.notify_all();
        return thrown;
    }

    bool hasTurn() const { return !waiting.empty() && waiting.front().ticket == running; }

    /// With the lock held.
    void runNext(std::unique_lock<std::mutex>& lock) {
        const Waiting next = std::move(waiting.front());
        waiting.pop_front();
        run(lock, next.block);
    }

    void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed.wait(lock, [&] { return waiting.empty() ? ending : hasTurn(); });
            if (waiting.empty()) return;
            runNext(lock);
        }
    }

    /// Called with the lock held. If no thread can be had, users of the queue run the blocks.
    void startWorker() {
        try {
            if (!worker.joinable()) worker = std::thread([this] { work(); });
        } catch (const std::exception&) {
        }
    }

    void workWithoutWorker(std::unique_lock<std::mutex>& lock) {
        while (!worker.joinable() && hasTurn())
            runNext(lock);
    }

    void startOverInChild() override {
        const bool isRunner = runner == std::this_thread::get_id();
        inherited.push_back(std::exchange(waiting, {}));
        ::new (&changed) std::condition_variable;
        ::new (&worker) std::thread;
        if (!isRunner) runner = {};
        nextTicket = isRunner ? running + 1 : running = nextTicket;
    }
};

DispatchQueue::DispatchQueue(std::string label)
    : label_(std::move(label)), state_(std::make_unique<State>()) {}

DispatchQueue::~DispatchQueue() {
    {
        const auto lock = state_->locked();
        state_->ending = true;
    }
    state_->changed.notify_all();
    if (state_->worker.joinable()) state_->worker.join();
}

void DispatchQueue::sync(const std::function<void()>& block) {
    if (!block) return;
    std::unique_lock lock = state_->locked();
    if (state_->runner == std::this_thread::get_id()) {
        lock.unlock();
        return block();
    }
    const std::uint64_t ticket = state_->nextTicket++;
    state_->changed.wait(lock, [&] { return state_->running == ticket; });
    const std::exception_ptr thrown = state_->run(lock, block);
    state_->workWithoutWorker(lock);
    lock.unlock();
    if (thrown) std::rethrow_exception(thrown);
}

void DispatchQueue::async(std::function<void()> block) {
    if (!block) return;
    std::unique_lock lock = state_->locked();
    try {
        state_->waiting.emplace_back();
    } catch (const std::bad_alloc&) {
        lock.unlock();
        whatItThrows([&] { sync(block); });
        return;
    }
    state_->waiting.back() = {state_->nextTicket++, std::move(block)};
    state_->startWorker();
    state_->workWithoutWorker(lock);
    lock.unlock();
    state_->changed.notify_all();
}

} // namespace pex
