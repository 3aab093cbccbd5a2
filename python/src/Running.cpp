#include "Running.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace nb = nanobind;

namespace pexpy {
namespace {

std::atomic<int> running = 0;

/// A thread that waits for its next work, so that few calls have to start one.
class Helper {
  public:
    void give(std::function<void()> work) {
        const std::lock_guard lock(mutex_);
        work_ = std::move(work);
        changed_.notify_one();
    }

    void serve();

  private:
    std::function<void()> taken() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return work_ != nullptr; });
        return std::exchange(work_, nullptr);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> work_;
};

std::atomic<Helper*> idle = nullptr; // one is kept, which Python's end and forks leave behind

void Helper::serve() {
    Helper* none = nullptr;
    do {
        taken()(); // what this holds may be Python's, which waits for `running`
        --running;
    } while (idle.compare_exchange_strong(none, this));
    delete this;
}

} // namespace

bool onMainThread() {
    static const auto main = [] {
        const nb::gil_scoped_acquire locked;
        return nb::cast<unsigned long>(nb::module_::import_("threading").attr("main_thread")().attr("ident"));
    }();
    return PyThread_get_thread_ident() == main;
}

bool startBeside(std::function<void()> work) {
    Helper* helper = idle.exchange(nullptr);
    if (helper == nullptr) {
        auto made = std::make_unique<Helper>();
        try {
            std::thread(&Helper::serve, made.get()).detach();
        } catch (const std::system_error&) {
            return false;
        }
        helper = made.release();
    }
    ++running;
    helper->give(std::move(work));
    return true;
}

int runningBeside() { return running; }

void forgetRunning() {
    running = 0;
    idle = nullptr;
}

void awaitOrInterrupt(const std::function<bool()>& isReady, std::stop_source& stop) {
    while (!isReady()) {
        const nb::gil_scoped_acquire locked;
        if (PyErr_CheckSignals() == 0) continue;
        stop.request_stop();
        throw nb::python_error();
    }
}

} // namespace pexpy
