#include "peximage/platform/foundation/Workers.h"

#include "peximage/platform/foundation/ForkSafe.h"
#include "peximage/platform/foundation/ReasonWatch.h"
#include "peximage/platform/foundation/Threads.h"
#include "peximage/platform/foundation/WorkState.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace pex {
namespace {

int coreCount() {
    static const int cores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return cores;
}

std::atomic<int> limit = 0; // 0: none

/// The number of threads that the environment asks for; 0 when it names none, or nonsense.
int countByEnvironment() {
    const char* text = std::getenv("PEXIMAGE_THREADS");
    const long count = text != nullptr ? std::strtol(text, nullptr, 10) : 0;
    return static_cast<int>(std::clamp(count, 0L, 1024L));
}

std::atomic<int>& wantedCount() { // 0: one a core
    static std::atomic<int> count{countByEnvironment()};
    return count;
}

/// One call of `forEach`; lives on the caller's stack.
struct Job {
    const std::function<void(int, int)>& work;
    const int count;
    const int parts = 3 * Workers::count() / 2; // a thread claims one in so many of the remaining indices
    const std::shared_ptr<const WorkState> control = currentWork();
    std::atomic<int> next{0};
    // The members below are changed under the pool's mutex.
    int slots = 1; // the caller has the first
    std::atomic<int> helpers{0};
    std::exception_ptr error{};
    Reason reason{}; // the reason that a helping thread was given

    void takePart(int slot) {
        for (int index = 0, end = 0; index < count; ++index) {
            if (index == end) std::tie(index, end) = claim();
            if (index >= count) break;
            endIfStopped();
            work(index, slot);
        }
    }

    /// The next run of indices for one thread: long ones first, since neighbours often share what they read,
    /// and short ones at the end, so that all threads end together.
    std::pair<int, int> claim() {
        int begin = next, end = 0;
        do {
            end = begin + std::max(1, (count - begin) / parts);
        } while (begin < count && !next.compare_exchange_weak(begin, end));
        return {begin, end};
    }
};

/// Polls for a short while before a thread goes to sleep: sleeping and waking takes longer than many
/// calls of `forEach`.
template <class Condition>
void awhile(const Condition& condition) {
    constexpr int looks = 300; // about a tenth of a millisecond
    for (int i = 0; i < looks && !condition(); ++i)
        std::this_thread::yield();
}

class Pool : private ForkAware {
  public:
    /// Never destroyed: its threads may outlive every static object.
    static Pool& shared() {
        static Pool& pool = *new Pool;
        return pool;
    }

    void forEach(Job& job) {
        {
            const std::lock_guard lock(mutex_);
            startThreads(std::min(job.count, Workers::count()) - 1);
            try {
                jobs_.push_back(&job);
            } catch (const std::bad_alloc&) { // no thread will help
            }
            ++changes_;
        }
        changed_.notify_all();
        std::exception_ptr error = partake(job, 0);
        std::unique_lock lock(mutex_);
        std::erase(jobs_, &job);
        lock.unlock();
        awhile([&] { return job.helpers == 0; });
        lock.lock();
        done_.wait(lock, [&] { return job.helpers == 0; });
        if (!error) error = job.error;
        lock.unlock();
        if (job.reason) giveReason(job.reason);
        if (error) std::rethrow_exception(error);
    }

    /// Queues a task; false when no thread can be had.
    bool run(std::function<void()>& task) {
        {
            const std::lock_guard lock(mutex_);
            startThreads(1);
            if (threads_ == 0) return false;
            try {
                tasks_.push_back(std::move(task));
            } catch (const std::bad_alloc&) {
                return false;
            }
            ++changes_;
        }
        changed_.notify_one();
        return true;
    }

    void whenIdle(std::chrono::milliseconds quiet, std::function<void()> hook) {
        {
            const std::lock_guard lock(mutex_);
            quiet_ = quiet;
            idleHook_ = std::move(hook);
            ++changes_;
        }
        changed_.notify_all();
    }

  private:
    /// With the lock held. Without threads the callers do all the work.
    void startThreads(int wanted) {
        try {
            for (; threads_ < wanted; ++threads_)
                std::thread([this] { work(); }).detach();
        } catch (const std::exception&) { // also without memory for one
        }
    }

    static std::exception_ptr partake(Job& job, int slot) {
        try {
            job.takePart(slot);
        } catch (...) {
            job.next = job.count;
            return std::current_exception();
        }
        return nullptr;
    }

    /// With the lock held: the newest job that still has work and room for one more.
    Job* openJob() {
        const auto isOpen = [](const Job* job) {
            return job->next < job->count && job->slots < Workers::count();
        };
        const auto found = std::find_if(jobs_.rbegin(), jobs_.rend(), isOpen);
        return found == jobs_.rend() ? nullptr : *found;
    }

    [[noreturn]] void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            const unsigned seen = changes_;
            if (openJob() == nullptr && tasks_.empty()) {
                lock.unlock();
                awhile([&] { return changes_ != seen; });
                lock.lock();
            }
            const auto hasWork = [&] { return openJob() != nullptr || !tasks_.empty(); };
            if (!changed_.wait_for(lock, quiet_, hasWork)) {
                if (jobs_.empty()) beIdle(lock);
            } else if (Job* job = openJob()) {
                help(*job, lock);
            } else if (!tasks_.empty()) {
                runTask(lock);
            }
        }
    }

    void runTask(std::unique_lock<std::mutex>& lock) {
        {
            const std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            try {
                task();
            } catch (...) { // nobody could catch it
            }
        }
        lock.lock();
    }

    /// Called with the lock held; calls the hook without it. Returns when there is new work.
    void beIdle(std::unique_lock<std::mutex>& lock) {
        if (idleHook_ && idleSince_ != changes_) {
            idleSince_ = changes_;
            const std::function<void()> hook = idleHook_;
            lock.unlock();
            hook();
            lock.lock();
        }
        changed_.wait(lock, [&] { return idleSince_ != changes_; });
    }

    void help(Job& job, std::unique_lock<std::mutex>& lock) {
        const int slot = job.slots++;
        ++job.helpers;
        lock.unlock();
        const ReasonWatch watch;
        const SharedWork control(job.control);
        std::exception_ptr error = partake(job, slot);
        lock.lock();
        if (error) job.error = std::move(error);
        if (watch.hasSeen()) copyReason(lastReason(), job.reason);
        if (--job.helpers == 0) done_.notify_all();
    }

    /// Forgets the calls and tasks: they belong to threads that do not exist in the child.
    void startOverInChild() override {
        ::new (&changed_) std::condition_variable;
        ::new (&done_) std::condition_variable;
        threads_ = 0;
        jobs_.clear();
        inherited_.push_back(std::exchange(tasks_, {}));
    }

    std::condition_variable changed_, done_;
    std::atomic<unsigned> changes_{0}; // counts what was handed over
    std::vector<Job*> jobs_;
    std::deque<std::function<void()>> tasks_;
    std::list<std::deque<std::function<void()>>>
        inherited_; // a parent's tasks, which a child must not destroy
    int threads_ = 0;
    std::chrono::milliseconds quiet_{std::chrono::hours(1)};
    std::function<void()> idleHook_;
    unsigned idleSince_ = 0; // changes_ when the hook was called last
};

/// Made while the library is loaded: a fork should not find a thread in the middle of making it.
[[maybe_unused]] const Pool& madeEarly = Pool::shared();

} // namespace

int Workers::mostCount() {
    const int most = limit;
    return most > 0 ? most : coreCount();
}

int Workers::count() {
    const int wanted = wantedCount();
    return wanted > 0 ? std::min(wanted, mostCount()) : mostCount();
}

int threadCount() { return Workers::count(); }

void setThreadCount(int count) { wantedCount() = std::max(count, 0); }

void Workers::forEach(int count, const std::function<void(int, int)>& work) {
    Job job{work, count};
    if (count <= 1 || Workers::count() == 1) return job.takePart(0);
    Pool::shared().forEach(job);
}

void Workers::run(std::function<void()> task) {
    task = underCurrentWork(std::move(task));
    if (!Pool::shared().run(task)) task();
}

void Workers::whenIdle(std::chrono::milliseconds quiet, std::function<void()> hook) {
    Pool::shared().whenIdle(quiet, std::move(hook));
}

Workers::Limit::Limit(int threads) : before_(limit.exchange(threads)) {}
Workers::Limit::~Limit() { limit = before_; }

} // namespace pex
