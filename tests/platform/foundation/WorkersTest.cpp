#include "peximage/platform/foundation/Workers.h"

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/Stopping.h"
#include "peximage/platform/foundation/Threads.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace pex {
namespace {

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
            const StopScope scope(stop.get_token());
            EXPECT_THROW(Workers::forEach(100'000,
                                          [&](int, int) {
                                              Workers::forEach(2, [&](int, int) { ++begun; });
                                              stop.request_stop();
                                          }),
                         Stopped);
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
    std::vector<std::promise<std::thread::id>> ran(20);
    for (auto& promise : ran)
        Workers::run([&promise] { promise.set_value(std::this_thread::get_id()); });
    for (auto& promise : ran)
        EXPECT_NE(promise.get_future().get(), std::this_thread::get_id());
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
} // namespace pex
