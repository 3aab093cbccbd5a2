#include "peximage/platform/foundation/Background.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/ThreadPool.h"

#include <algorithm>
#include <thread>

namespace pex {
namespace {

/// Never freed: coroutines may still run while the process ends.
ThreadPool& pool() {
    const ForkPass pass; // a fork now would leave it half made
    static ThreadPool& instance =
        *new ThreadPool(std::max(2, static_cast<int>(std::thread::hardware_concurrency())));
    return instance;
}

} // namespace

void Background::await_suspend(std::coroutine_handle<> suspended) const {
    pool().run([suspended] { suspended.resume(); });
}

} // namespace pex
