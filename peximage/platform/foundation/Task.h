#pragma once

#include <condition_variable>
#include <coroutine>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

namespace pex {

namespace detail {

/// Where a coroutine leaves its result.
template <class T>
struct TaskResult {
    std::optional<T> value;

    void return_value(T result) { value.emplace(std::move(result)); }
    T take() { return std::move(*value); }
};

template <>
struct TaskResult<void> {
    void return_void() const noexcept {}
    void take() const noexcept {}
};

} // namespace detail

/// The result of an asynchronous operation: a lazy coroutine. It starts when it is first awaited with
/// `co_await` or waited for with `get()`, and may be used up once. A coroutine that suspends resumes on
/// whatever thread the operation it waits for names. Exceptions do not leave a task: one that escapes ends
/// the program.
template <class T>
class Task {
  public:
    struct promise_type;
    using Handle = std::coroutine_handle<promise_type>;

    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
    Task& operator=(Task&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Task() {
        if (handle_) handle_.destroy();
    }

    bool await_ready() const noexcept { return false; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle_.promise().continuation = awaiting;
        return handle_;
    }
    T await_resume() { return handle_.promise().take(); }

    /// Starts the operation on the calling thread and blocks until it is done, wherever it ends.
    T get();

    struct promise_type : detail::TaskResult<T> {
        std::coroutine_handle<> continuation = std::noop_coroutine();

        Task get_return_object() { return Task(Handle::from_promise(*this)); }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        struct FinalAwaiter {
            bool await_ready() const noexcept { return false; }
            std::coroutine_handle<> await_suspend(Handle ended) const noexcept {
                return ended.promise().continuation;
            }
            void await_resume() const noexcept {}
        };
        FinalAwaiter final_suspend() const noexcept { return {}; }
        [[noreturn]] void unhandled_exception() const noexcept { std::terminate(); }
    };

  private:
    explicit Task(Handle handle) : handle_(handle) {}

    Handle handle_;
};

namespace detail {

/// Shared with the waiting thread, which may leave while the coroutine is still returning.
struct TaskEnd {
    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;

    void signal() {
        const std::lock_guard lock(mutex);
        done = true;
        changed.notify_all();
    }
    void wait() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return done; });
    }
};

/// A coroutine that runs at once and frees itself at its end.
struct Detached {
    struct promise_type {
        Detached get_return_object() const noexcept { return {}; }
        std::suspend_never initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        [[noreturn]] void unhandled_exception() const noexcept { std::terminate(); }
    };
};

template <class T>
Detached runTask(Task<T>& task, TaskResult<T>& result, std::shared_ptr<TaskEnd> end) {
    if constexpr (std::is_void_v<T>)
        co_await task;
    else
        result.return_value(co_await task);
    end->signal();
}

} // namespace detail

template <class T>
T Task<T>::get() {
    detail::TaskResult<T> result;
    const auto end = std::make_shared<detail::TaskEnd>();
    detail::runTask(*this, result, end);
    end->wait();
    return result.take();
}

} // namespace pex
