#pragma once

#include "Image.h"
#include "peximage/platform/foundation/WorkControl.h"

#include <functional>
#include <future>
#include <memory>
#include <nanobind/nanobind.h>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace pexpy {

/// Whether this is the thread on which Python handles signals.
bool onMainThread();

/// Runs the work on a thread of its own; false when none can be had, and the work was not run.
bool startBeside(std::function<void()> work);

/// How many of these are not done yet. Python waits for them before it ends.
int runningBeside();

/// In a forked child, which has only the thread that forked.
void forgetRunning();

/// Returns when the work is ready; stops it and throws KeyboardInterrupt, or what else a signal's handler
/// raises. For
/// the main thread without the interpreter's lock.
void awaitOrInterrupt(const std::function<bool()>& isReady, std::stop_source& stop);

/// The work's result while other Python threads may run. On the main thread, work that may take long stands
/// on a thread of its own, so that Ctrl-C is answered at once; what was begun then stops unseen.
template <class Work>
auto interruptibly(bool mayTakeLong, Work work) -> decltype(work()) {
    const nanobind::gil_scoped_release unlocked;
    if (!mayTakeLong || !onMainThread()) return work();
    std::stop_source stop;
    auto task = std::make_shared<std::packaged_task<decltype(work())()>>([work, token = stop.get_token()] {
        const pex::WorkControl control(token);
        return work();
    });
    auto result = task->get_future();
    if (!startBeside([task = std::move(task)] { (*task)(); })) return work();
    using namespace std::chrono_literals;
    awaitOrInterrupt([&] { return result.wait_for(20ms) == std::future_status::ready; }, stop);
    return result.get();
}

inline bool mayTakeLong(const Image& image) { return image.size().width * image.size().height > 1e6; }

/// A function of an image as a method that Ctrl-C interrupts. Its arguments are copied, since it may go on
/// when they are gone.
template <class Result, class... Rest>
auto interruptible(Result (*function)(const Image&, Rest...)) {
    return [function](const Image& image, std::decay_t<Rest>... rest) {
        return interruptibly(mayTakeLong(image), [=] { return function(image, rest...); });
    };
}

} // namespace pexpy
