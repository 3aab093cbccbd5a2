#pragma once

#include "peximage/platform/varda/Queue.h"

#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

/// Runs background work on threads that can be waited for.
class JoinedQueue {
  public:
    JoinedQueue() {
        pex::Queue::setExecutor([this](std::function<void()> work) {
            const std::lock_guard lock(mutex_);
            threads_.emplace_back(std::move(work));
        });
    }
    ~JoinedQueue() {
        finish();
        pex::Queue::setExecutor({});
    }
    /// Waits for all work, and for what that has handed over.
    void finish() {
        for (;;) {
            std::vector<std::thread> threads;
            {
                const std::lock_guard lock(mutex_);
                threads.swap(threads_);
            }
            if (threads.empty()) return;
            for (std::thread& thread : threads)
                thread.join();
        }
    }

  private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};
