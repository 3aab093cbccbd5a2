#include "modules/heif/Startable.h"

#include <exception>
#include <mutex>
#include <thread>
#include <vector>

bool pex::heif::canStart(int threads) {
    std::mutex gate;
    std::unique_lock closed(gate);
    std::vector<std::thread> started;
    try {
        started.reserve(static_cast<std::size_t>(threads));
        for (int i = 0; i < threads; ++i)
            started.emplace_back([&gate] { const std::lock_guard passing(gate); });
    } catch (const std::exception&) { // no thread, or no memory for one
    }
    const bool all = started.size() == static_cast<std::size_t>(threads);
    closed.unlock();
    for (std::thread& thread : started)
        thread.join();
    return all;
}
