#include "peximage/platform/foundation/DispatchQueue.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace pex {

/// Every block takes a ticket when it comes in and runs when all earlier ones are done: `sync` blocks on
/// their caller's thread, `async` blocks on the worker.
struct DispatchQueue::State {
    struct Waiting {
        std::uint64_t ticket;
        std::function<void()> block;
    };

    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t nextTicket = 0;
    std::uint64_t running = 0; // the ticket whose turn it is
    std::thread::id runner;
    std::deque<Waiting> waiting;
    std::thread worker;
    bool ending = false;

    /// Called with the lock held; runs the block without it.
    void run(std::unique_lock<std::mutex>& lock, const std::function<void()>& block) {
        runner = std::this_thread::get_id();
        lock.unlock();
        block();
        lock.lock();
        runner = {};
        ++running;
        changed.notify_all();
    }

    void work() {
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [&] { return waiting.empty() ? ending : waiting.front().ticket == running; });
            if (waiting.empty()) return;
            const Waiting next = std::move(waiting.front());
            waiting.pop_front();
            run(lock, next.block);
        }
    }
};

DispatchQueue::DispatchQueue(std::string label)
    : label_(std::move(label)), state_(std::make_unique<State>()) {}

DispatchQueue::~DispatchQueue() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending = true;
    }
    state_->changed.notify_all();
    if (state_->worker.joinable()) state_->worker.join();
}

void DispatchQueue::sync(const std::function<void()>& block) {
    std::unique_lock lock(state_->mutex);
    if (state_->runner == std::this_thread::get_id()) {
        lock.unlock();
        block();
        return;
    }
    const std::uint64_t ticket = state_->nextTicket++;
    state_->changed.wait(lock, [&] { return state_->running == ticket; });
    state_->run(lock, block);
}

void DispatchQueue::async(std::function<void()> block) {
    {
        const std::lock_guard lock(state_->mutex);
        state_->waiting.push_back({state_->nextTicket++, std::move(block)});
        if (!state_->worker.joinable())
            state_->worker = std::thread([state = state_.get()] { state->work(); });
    }
    state_->changed.notify_all();
}

} // namespace pex
