#pragma once

#include <functional>
#include <thread>
#include <vector>

/// Calls the work on so many threads at the same time, with their numbers, and returns when all have ended.
inline void onThreads(unsigned count, const std::function<void(unsigned thread)>& work) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back(work, i);
}
