#include "peximage/platform/foundation/DispatchQueue.h"
#include "peximage/platform/foundation/Task.h"
#include "peximage/platform/varda/PexId.h"
#include "peximage/platform/varda/PexPrecalc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
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
    ASSERT_EQ(order.size(), 100U);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(DispatchQueue, ManyThreadsTakeTurnsAndMayNest) {
    DispatchQueue queue;
    long counter = 0; // no lock of its own
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
                queue.sync([&] { queue.sync([&] { ++counter; }); });
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter, 4000);
}

/// Resumes the coroutine on another thread.
struct Hop {
    bool await_ready() const { return false; }
    void await_suspend(std::coroutine_handle<> handle) const {
        std::thread([handle] { handle.resume(); }).detach();
    }
    void await_resume() const {}
};

Task<int> twice(int value, std::atomic<int>& started) {
    ++started;
    co_await Hop{};
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

TEST(PexId, DiffersOverThreads) {
    std::vector<std::vector<std::string>> made(4);
    std::vector<std::thread> threads;
    for (auto& list : made) {
        threads.emplace_back([&list] {
            for (int i = 0; i < 1000; ++i)
                list.push_back(PexId::newId("", "", i % 2 == 0));
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::set<std::string> all;
    for (const auto& list : made)
        all.insert(list.begin(), list.end());
    EXPECT_EQ(all.size(), 4000U);
    EXPECT_TRUE(PexId::newId("p", "tag", true).starts_with("ptag-"));
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

} // namespace
