#include "peximage/platform/varda/XMain.h"

#include "peximage/platform/foundation/ForkSafe.h"

#include <atomic>
#include <deque>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <utility>

namespace pex {
namespace {

struct MainQueue {
    ForkSafeMutex mutex; // guards what follows
    std::thread::id mainThread = std::this_thread::get_id();
    std::deque<std::function<void()>> blocks;
    std::list<std::deque<std::function<void()>>> inherited;

    std::atomic<unsigned> added{0}; // blocks so far

    LongHeldMutex wakeUpMutex; // held during the call
    std::function<void()> wakeUp;

    MainQueue() { ::pthread_atfork(nullptr, nullptr, startOverInChild); }
    static void startOverInChild();
};

MainQueue& queue() {
    const ForkPass pass; // a fork now would leave it half made
    // Never freed: other threads may still hand over work while the process ends.
    static MainQueue& instance = *new MainQueue;
    return instance;
}

/// The child's only thread becomes the main thread. A child must neither run nor destroy its parent's
/// blocks: what they hold may be locked.
void MainQueue::startOverInChild() {
    MainQueue& main = queue();
    main.mainThread = std::this_thread::get_id();
    main.inherited.push_back(std::exchange(main.blocks, {}));
}

void enqueue(std::function<void()> block) {
    MainQueue& main = queue();
    {
        const std::lock_guard lock(main.mutex);
        main.blocks.push_back(std::move(block));
    }
    ++main.added;
    main.added.notify_all();
    const std::lock_guard lock(main.wakeUpMutex);
    if (main.wakeUp) main.wakeUp();
}

/// The next block; empty when none is queued.
std::function<void()> takeBlock() {
    MainQueue& main = queue();
    const std::lock_guard lock(main.mutex);
    if (main.blocks.empty()) return {};
    std::function<void()> block = std::move(main.blocks.front());
    main.blocks.pop_front();
    return block;
}

std::size_t countBlocks() {
    const std::lock_guard lock(queue().mutex);
    return queue().blocks.size();
}

/// Runs a block that was queued, so that the event loop goes on.
void runQueued(const std::function<void()>& block) noexcept {
    try {
        block();
    } catch (...) { // nobody could catch it
    }
}

} // namespace

void XMain::becomeMain() {
    MainQueue& main = queue();
    const std::lock_guard lock(main.mutex);
    main.mainThread = std::this_thread::get_id();
}

bool XMain::isMain() {
    MainQueue& main = queue();
    const std::lock_guard lock(main.mutex);
    return main.mainThread == std::this_thread::get_id();
}

void XMain::execute(std::function<void()> block) {
    if (!block) return;
    if (isMain())
        block();
    else
        enqueue(std::move(block));
}

void XMain::sync(const std::function<void()>& block) {
    if (!block) return;
    if (isMain()) return block();
    const auto ran = std::make_shared<std::promise<void>>(); // shared, since this thread may return while the
                                                             // promise is being set
    enqueue([&block, ran] {
        try {
            block();
            ran->set_value();
        } catch (...) {
            ran->set_exception(std::current_exception());
        }
    });
    ran->get_future().get();
}

std::size_t XMain::drain() {
    if (!isMain()) return 0;
    const std::size_t waiting = countBlocks();
    // One at a time, so that a block which drains the queue itself keeps the order.
    std::size_t ran = 0;
    for (; ran < waiting; ++ran) {
        const std::function<void()> block = takeBlock();
        if (!block) break;
        runQueued(block);
    }
    return ran;
}

void XMain::waitAndDrain() {
    if (!isMain()) return;
    std::atomic<unsigned>& added = queue().added;
    for (unsigned seen = added; countBlocks() == 0; seen = added)
        added.wait(seen);
    drain();
}

void XMain::setWakeUp(std::function<void()> wakeUp) {
    MainQueue& main = queue();
    const std::lock_guard lock(main.wakeUpMutex);
    const ForkPass pass;
    main.wakeUp.swap(wakeUp);
}

} // namespace pex
