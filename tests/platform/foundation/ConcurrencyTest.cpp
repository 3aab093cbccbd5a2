#include "peximage/platform/foundation/Background.h"
#include "peximage/platform/foundation/DispatchQueue.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/foundation/Threads.h"
#include "peximage/platform/foundation/WorkState.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"
#include "peximage/platform/varda/PexPrecalc.h"
#include "tests/support/InChild.h"
#include "tests/support/Surroundings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <new>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace pex;

namespace {

TEST(DispatchQueue, RunsBlocksOneAtATimeInOrder) {
    std::vector<int> order;
    {
        DispatchQueue queue;
        for (int i = 0; i < 100; ++i) {
            if (i % 3 == 0)
                queue.sync([&order, i] { order.push_back(i); });
            else
                queue.async([&order, i] { order.push_back(i); });
        }
    }
    EXPECT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(DispatchQueue, ManyThreadsTakeTurnsAndMayNest) {
    DispatchQueue queue;
    long counter = 0; // no lock of its own
    onThreads(8, [&](unsigned) {
        for (int i = 0; i < 500; ++i)
            queue.sync([&] { queue.sync([&] { ++counter; }); });
    });
    EXPECT_EQ(counter, 4000);
}

TEST(DispatchQueue, ABlockThatThrowsHoldsNobodyUp) {
    DispatchQueue queue;
    queue.async([] { throw std::runtime_error("which is dropped"); });
    EXPECT_THROW(queue.sync([] { throw std::runtime_error("which comes back"); }), std::runtime_error);
    queue.sync({});
    queue.async({});
    int ran = 0;
    queue.sync([&] { ++ran; });
    EXPECT_EQ(ran, 1);
}

Task<int> twice(int value, std::atomic<int>& started) {
    ++started;
    co_await onBackground();
    co_return 2 * value;
}

Task<std::string> chain(int rounds, std::atomic<int>& started) {
    int value = 1;
    for (int i = 0; i < rounds; ++i)
        value = co_await twice(value, started);
    co_return std::to_string(value);
}

TEST(Task, StartsWhenAskedAndComesBackFromOtherThreads) {
    std::atomic<int> started{0};
    for (int i = 0; i < 200; ++i) {
        auto task = chain(10, started);
        EXPECT_EQ(started, i * 10);
        EXPECT_EQ(task.get(), "1024");
    }
    { const auto neverStarted = chain(1, started); }
    EXPECT_EQ(started, 2000);
}

/// Waits within itself, on a thread of the pool, for another one of the pool.
Task<int> nested(int depth) {
    co_await onBackground();
    co_return depth == 0 ? 1 : 1 + nested(depth - 1).get();
}

TEST(Task, CanBeWaitedForOnABackgroundThread) {
    EXPECT_EQ(nested(40).get(), 41); // deeper than the pool has threads
    if (underThreadSanitizer) return;
    const int status = inChild([] {
        allowNoMoreThreads();
        return nested(5).get();
    });
    EXPECT_EQ(status, 6);
}

template <class T>
Task<T> refuses(T result) {
    co_await onBackground();
    giveReason(ReasonCode::damaged, "on another thread");
    co_return result;
}

template <class T>
Task<T> passesOn(T result) {
    T got = co_await refuses<T>(std::move(result));
    co_return lastReason().code == ReasonCode::damaged ? std::move(got) : T{};
}

/// What this thread knows after it got the result.
template <class T>
ReasonCode reasonAfter(Task<T> task) {
    giveReason(ReasonCode::none, "");
    (void)task.get();
    return lastReason().code;
}

TEST(Task, TellsWhyThereIsNoResultWhereItIsTaken) {
    EXPECT_EQ(reasonAfter(refuses(false)), ReasonCode::damaged);
    EXPECT_EQ(reasonAfter(refuses(std::shared_ptr<int>())), ReasonCode::damaged);
    EXPECT_EQ(reasonAfter(passesOn(std::optional<int>())), ReasonCode::damaged);
    EXPECT_EQ(reasonAfter(refuses(true)), ReasonCode::none);
}

Task<bool> throws(std::exception_ptr what) {
    co_await onBackground();
    std::rethrow_exception(what);
}

TEST(Task, WhatItThrowsIsThrownWhereItsResultIsTaken) {
    EXPECT_THROW(throws(std::make_exception_ptr(std::runtime_error(""))).get(), std::runtime_error);
    EXPECT_FALSE(throws(std::make_exception_ptr(std::bad_alloc())).get());
    EXPECT_EQ(lastReason().code, ReasonCode::outOfMemory);
    Task<bool> task = refuses(true);
    const Task<bool> taken = std::move(task);
    EXPECT_FALSE(task.get()) << "there is nothing to wait for";
}

TEST(PexPrecalc, ComputesOnceAndForgetsTheOldest) {
    PexPrecalc<int> memo(2);
    int computed = 0;
    const auto ask = [&](const std::string& key) {
        return memo.getValueOrCalc(key, [&] { return ++computed; });
    };
    EXPECT_EQ(ask("a"), 1);
    EXPECT_EQ(ask("a"), 1);
    EXPECT_EQ(ask("b"), 2);
    EXPECT_EQ(ask("c"), 3); // "a" makes room
    EXPECT_EQ(ask("b"), 2);
    EXPECT_EQ(ask("a"), 4);
    PexPrecalc<int> keepsNothing(0);
    EXPECT_EQ(keepsNothing.getValueOrCalc("a", [] { return 1; }), 1);
    EXPECT_EQ(keepsNothing.getValueOrCalc("a", [] { return 2; }), 2);
}

/// How often each index came.
std::vector<int> visits(int count) {
    std::vector<std::atomic<int>> seen(static_cast<std::size_t>(std::max(count, 0)));
    Workers::forEach(count, [&](int index, int) { ++seen.at(static_cast<std::size_t>(index)); });
    return {seen.begin(), seen.end()};
}

TEST(Workers, EveryIndexComesOnce) {
    for (const int threads : {1, 2, 3, 8}) {
        const Workers::Limit limit(threads);
        for (const int count : {-1, 0, 1, 2, 3, 7, 100, 4097})
            EXPECT_EQ(visits(count), std::vector<int>(static_cast<std::size_t>(std::max(count, 0)), 1))
                << count << " on " << threads;
    }
}

TEST(Workers, ASlotBelongsToOneThreadDuringACall) {
    const Workers::Limit limit(4);
    std::vector<std::atomic<bool>> taken(4);
    std::atomic<int> clashes = 0;
    Workers::forEach(2000, [&](int, int slot) {
        if (taken.at(static_cast<std::size_t>(slot)).exchange(true)) ++clashes;
        std::this_thread::yield();
        taken[static_cast<std::size_t>(slot)] = false;
    });
    EXPECT_EQ(clashes, 0);
}

TEST(Workers, TheApplicationBoundsHowManyThreadsACallHas) {
    const Workers::Limit machine(4);
    for (const auto& [asked, expected] : {std::pair{1, 1}, {2, 2}, {9, 4}, {0, 4}, {-3, 4}}) {
        setThreadCount(asked);
        EXPECT_EQ(threadCount(), expected) << asked;
        std::atomic<int> highest = 0;
        Workers::forEach(2000, [&](int, int slot) {
            for (int seen = highest; seen < slot && !highest.compare_exchange_weak(seen, slot);) {
            }
            std::this_thread::yield();
        });
        EXPECT_LT(highest, expected) << asked;
    }
}

TEST(Workers, CallsWithinCallsAndFromSeveralThreadsEnd) {
    const Workers::Limit limit(3);
    std::atomic<int> sum = 0;
    const auto nested = [&] {
        Workers::forEach(20, [&](int, int) { Workers::forEach(30, [&](int index, int) { sum += index; }); });
    };
    { const std::jthread a(nested), b(nested), c(nested); }
    EXPECT_EQ(sum, 3 * 20 * (29 * 30 / 2));
}

TEST(Workers, WhatTheWorkThrowsReachesTheCallerAndThePoolGoesOn) {
    const Workers::Limit limit(4);
    std::atomic<int> begun = 0;
    EXPECT_THROW(Workers::forEach(100'000,
                                  [&](int index, int) {
                                      ++begun;
                                      if (index == 50) throw std::runtime_error("fifty");
                                  }),
                 std::runtime_error);
    EXPECT_GE(begun, 1);
    EXPECT_EQ(visits(100), std::vector<int>(100, 1));
}

TEST(Workers, StopForTheCallWhoseScopeItIs) {
    for (const int threads : {1, 4}) {
        const Workers::Limit limit(threads);
        std::stop_source stop;
        std::atomic<int> begun = 0;
        {
            const WorkControl control(stop.get_token());
            EXPECT_THROW(Workers::forEach(100'000,
                                          [&](int, int) {
                                              Workers::forEach(2, [&](int, int) { ++begun; });
                                              stop.request_stop();
                                          }),
                         WorkStopped);
        }
        EXPECT_LE(begun, 2 * threads);
        EXPECT_EQ(visits(100), std::vector<int>(100, 1));
    }
}

TEST(Workers, TheReasonThatAHelperWasGivenReachesTheCaller) {
    const Workers::Limit limit(2);
    giveReason(ReasonCode::none, "");
    const auto caller = std::this_thread::get_id();
    std::atomic<bool> helped = false;
    Workers::forEach(2, [&](int, int) {
        if (std::this_thread::get_id() != caller) {
            giveReason(ReasonCode::damaged, "seen by a helper");
            helped = true;
        }
        while (!helped)
            std::this_thread::yield();
    });
    EXPECT_EQ(lastReason().message, "seen by a helper");
}

TEST(Workers, TasksRunOnOtherThreads) {
    std::promise<std::thread::id> ran;
    Workers::run([&] { ran.set_value(std::this_thread::get_id()); });
    EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
}

TEST(Workers, TellWhenTheyAreIdleAfterEachBusyTime) {
    const Workers::Limit limit(2);
    const auto idle = std::make_shared<std::counting_semaphore<>>(0);
    Workers::whenIdle(std::chrono::milliseconds(1), [idle] { idle->release(); });
    for (int round = 0; round < 3; ++round) {
        visits(10);
        idle->acquire();
    }
    Workers::whenIdle(std::chrono::seconds(2), [] { pixelPool::drain(); });
}

} // namespace
