#include "Running.h"

#include <atomic>
#include <system_error>
#include <thread>

namespace nb = nanobind;

namespace pexpy {
namespace {

std::atomic<int> running = 0;

} // namespace

bool onMainThread() {
    static const std::thread::id main = [] {
        const nb::gil_scoped_acquire locked;
        const auto ident = nb::module_::import_("threading").attr("main_thread")().attr("ident");
        const bool isThis = nb::cast<unsigned long>(ident) == PyThread_get_thread_ident();
        return isThis ? std::this_thread::get_id() : std::thread::id();
    }();
    return std::this_thread::get_id() == main;
}

bool startBeside(std::function<void()> work) {
    ++running;
    try {
        std::thread([work = std::move(work)]() mutable {
            work();
            work = nullptr; // what it holds may be Python's, which waits for `running`
            --running;
        }).detach();
    } catch (const std::system_error&) {
        --running;
        return false;
    }
    return true;
}

int runningBeside() { return running; }

void forgetRunning() { running = 0; }

void awaitOrInterrupt(const std::function<bool()>& isReady, std::stop_source& stop) {
    while (!isReady()) {
        const nb::gil_scoped_acquire locked;
        if (PyErr_CheckSignals() == 0) continue;
        stop.request_stop();
        throw nb::python_error();
    }
}

} // namespace pexpy
