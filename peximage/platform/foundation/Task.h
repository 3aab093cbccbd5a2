#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Reason.h"

#include <atomic>
#include <concepts>
#include <coroutine>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

namespace pex {

class ThreadPool;

namespace detail {

/// How a coroutine ended beside its result: what it threw, or why it gave nothing.
class PEX_EXPORT TaskEnding {
  public:
    void unhandled_exception() noexcept { thrown_ = std::current_exception(); }

  protected:
    /// Keeps this thread's `lastReason`.
    void keepReason() noexcept;
    /// On the thread that gets the result: leaves it the reason, and throws what was thrown. Lack of memory
    /// is told as a reason and not thrown.
    void tell() const;

  private:
    std::exception_ptr thrown_;
    std::unique_ptr<const Reason> reason_;
};

/// What there is of a result when memory ran out.
template <class T>
T withoutMemory() {
    if constexpr (std::is_void_v<T>)
        return;
    else if constexpr (std::default_initializable<T>)
        return T{};
    else
        throw std::bad_alloc();
}

/// For a task that could not even begin.
PEX_EXPORT void tellOutOfMemory() noexcept;

/// Where a coroutine leaves its result.
template <class T>
class TaskResult : public TaskEnding {
  public:
    void return_value(T result) {
        value_.emplace(std::move(result));
        if constexpr (requires { !*value_; })
            if (!*value_) keepReason();
    }
    T take() {
        tell();
        return value_ ? std::move(*value_) : withoutMemory<T>();
    }

  private:
    std::optional<T> value_;
};

template <>
class TaskResult<void> : public TaskEnding {
  public:
    void return_void() const noexcept {}
    void take() const { tell(); }
};

} // namespace detail

/// The result of an asynchronous operation: a lazy coroutine. It starts when it is first awaited with
/// `co_await` or waited for with `get()`, and may be used up once. A coroutine that suspends resumes on
/// whatever thread the operation it waits for names.
///
/// When the result is absent (null, false, an empty optional), `lastReason()` tells the thread that got it
/// why. What a coroutine throws is thrown where its result is taken; when memory runs out, the result is
/// absent instead, or what its type makes by default. The library's own tasks throw nothing.
template <class T>
class Task {
  public:
    struct promise_type;
    /// The coroutine behind the task.
    using Handle = std::coroutine_handle<promise_type>;

    /// Takes the operation over; the one taken from is empty.
    /// @{
    Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
    Task& operator=(Task&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    /// @}
    ~Task() {
        if (handle_) handle_.destroy();
    }

    /// @cond
    bool await_ready() const noexcept { return !handle_; }
    std::coroutine_handle<> await_suspend(std::coroutine_handle<> awaiting) noexcept {
        handle_.promise().continuation = awaiting;
        return handle_;
    }
    T await_resume() {
        if (handle_) return handle_.promise().take();
        detail::tellOutOfMemory();
        return detail::withoutMemory<T>();
    }
    /// @endcond

    /// Starts the operation on the calling thread and blocks until it is done, wherever it ends. Also on a
    /// background thread of the library: the work that is waited for gets another one.
    T get();

    /// @cond
    struct promise_type : detail::TaskResult<T> {
        std::coroutine_handle<> continuation = std::noop_coroutine();

        Task get_return_object() { return Task(Handle::from_promise(*this)); }
        static Task get_return_object_on_allocation_failure() noexcept { return Task(Handle()); }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        struct FinalAwaiter {
            bool await_ready() const noexcept { return false; }
            std::coroutine_handle<> await_suspend(Handle ended) const noexcept {
                return ended.promise().continuation;
            }
            void await_resume() const noexcept {}
        };
        FinalAwaiter final_suspend() const noexcept { return {}; }
    };
    /// @endcond

  private:
    explicit Task(Handle handle) : handle_(handle) {}

    Handle handle_;
};

namespace detail {

/// Shared with the waiting thread, which may leave while the coroutine is still returning.
class PEX_EXPORT TaskEnd {
  public:
    TaskEnd();
    void signal();
    void wait();

  private:
    ThreadPool* const pool_; // whose thread waits; null when none does
    std::atomic<bool> done_{false};
};

/// A coroutine that signals the end when it is resumed, and frees itself.
struct EndSignal {
    struct promise_type {
        EndSignal get_return_object() noexcept {
            return {std::coroutine_handle<promise_type>::from_promise(*this)};
        }
        std::suspend_always initial_suspend() const noexcept { return {}; }
        std::suspend_never final_suspend() const noexcept { return {}; }
        void return_void() const noexcept {}
        [[noreturn]] void unhandled_exception() const noexcept { std::terminate(); }
    };
    std::coroutine_handle<> handle;
};

PEX_EXPORT EndSignal signalWhenResumed(std::shared_ptr<TaskEnd> end);

} // namespace detail

template <class T>
T Task<T>::get() {
    if (!handle_) return await_resume();
    std::shared_ptr<detail::TaskEnd> end;
    try {
        end = std::make_shared<detail::TaskEnd>();
        handle_.promise().continuation = detail::signalWhenResumed(end).handle;
    } catch (const std::bad_alloc&) {
        detail::tellOutOfMemory();
        return detail::withoutMemory<T>();
    }
    handle_.resume();
    end->wait();
    return handle_.promise().take();
}

} // namespace pex
