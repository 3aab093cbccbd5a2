#include "peximage/platform/varda/XMain.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace pex {
namespace {

struct MainQueue {
    std::mutex mutex;
    std::condition_variable changed;
    std::thread::id mainThread = std::this_thread::get_id();
    std::deque<std::function<void()>> blocks;
    std::function<void()> wakeUp;
};

MainQueue& queue() {
    // Never freed: other threads may still hand over work while the process ends.
    static MainQueue& instance = *new MainQueue;
    return instance;
}

void enqueue(std::function<void()> block) {
    MainQueue& main = queue();
    const std::lock_guard lock(main.mutex);
    main.blocks.push_back(std::move(block));
    main.changed.notify_all();
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
    if (isMain())
        block();
    else
        enqueue(std::move(block));
}

void XMain::sync(const std::function<void()>& block) {
    if (isMain()) return block();
    std::mutex mutex;
    std::condition_variable ran;
    bool done = false;
    enqueue([&] {
        block();
        const std::lock_guard lock(mutex);
        done = true;
        ran.notify_one();
    });
    std::unique_lock lock(mutex);
    ran.wait(lock, [&] { return done; });
}

std::size_t XMain::drain() {
    if (!isMain()) return 0;
    std::size_t waiting = 0;
    {
        const std::lock_guard lock(queue().mutex);
        waiting = queue().blocks.size();
    }
    // One at a time, so that a block which drains the queue itself keeps the order.
    std::size_t ran = 0;
    for (; ran < waiting; ++ran) {
        const std::function<void()> block = takeBlock();
        if (!block) break;
        block();
    }
    return ran;
}

void XMain::waitAndDrain() {
    if (!isMain()) return;
    {
        MainQueue& main = queue();
        std::unique_lock lock(main.mutex);
        main.changed.wait(lock, [&] { return !main.blocks.empty(); });
    }
    drain();
}

void XMain::setWakeUp(std::function<void()> wakeUp) {
    MainQueue& main = queue();
    const std::lock_guard lock(main.mutex);
    main.wakeUp = std::move(wakeUp);
}

} // namespace pex
