#include "peximage/platform/varda/Queue.h"

#include "peximage/platform/varda/FileUtilities.h"
#include "tests/support/InChild.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <latch>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <vector>

namespace pex {
namespace {

constexpr int moreThanThreads = 16;

/// Occupies the pool's threads, all of them, until it is let go.
class BusyPool {
  public:
    BusyPool() {
        for (int i = 0; i < moreThanThreads; ++i) {
            Queue::execute(true, [this] {
                ++begun;
                go_.wait();
                end_.count_down();
            });
        }
        while (begun == 0)
            std::this_thread::yield();
    }
    void release() { go_.count_down(); }
    ~BusyPool() { end_.wait(); }

    std::atomic<int> begun{0};

  private:
    std::latch go_{1}, end_{moreThanThreads};
};

TEST(Queue, RunsEverythingOnceOffTheCallersThread) {
    constexpr int works = 2000;
    std::vector<std::atomic<int>> runs(works);
    std::latch done(works);
    std::atomic<int> onCaller{0};
    const auto caller = std::this_thread::get_id();
    for (int i = 0; i < works; ++i) {
        Queue::execute(i % 2 == 0, [&, i] {
            if (std::this_thread::get_id() == caller) ++onCaller;
            ++runs[static_cast<std::size_t>(i)];
            done.count_down();
        });
    }
    Queue::execute(true, {});
    done.wait();
    EXPECT_EQ(onCaller, 0);
    for (const auto& count : runs)
        EXPECT_EQ(count, 1);
}

TEST(Queue, FastWorkComesBeforeTheRest) {
    constexpr int fastWorks = 100;
    std::atomic<int> fastBegun{0};
    int fastBefore = 0;
    std::latch done(fastWorks + 1);
    BusyPool busy;
    Queue::execute(false, [&] {
        fastBefore = fastBegun;
        done.count_down();
    });
    for (int i = 0; i < fastWorks; ++i) {
        Queue::execute(true, [&] {
            ++fastBegun;
            done.count_down();
        });
    }
    EXPECT_LT(busy.begun, moreThanThreads) << "the pool is small";
    busy.release();
    done.wait();
    EXPECT_GT(fastBefore, fastWorks - moreThanThreads) << "but for what other threads are about to begin";
}

/// Hands over work while it is destroyed, as an application's own globals may.
struct LateCaller {
    ~LateCaller() {
        Queue::execute(false, [] {});
        Queue::setExecutor({});
    }
};

// A forked process has none of its parent's threads, and ends through `exit` as any program does.
TEST(Queue, AProcessEndsWithWorkQueuedRunningAndStuck) {
    if (underThreadSanitizer) GTEST_SKIP();
    for (const bool exitFromWork : {false, true}) {
        const int status = inChild([exitFromWork]() -> int {
            Queue::setPatienceAtExit(0.2);
            static const LateCaller late;
            std::latch running(1);
            static std::latch never(1);
            Queue::execute(true, [&] { running.count_down(); });
            running.wait();
            Queue::execute(true, [] { never.wait(); });
            if (exitFromWork) Queue::execute(true, [] { std::exit(42); });
            for (int i = 0; i < 1000; ++i)
                Queue::execute(false, [] { never.wait(); });
            if (!exitFromWork) std::exit(42);
            for (;;)
                std::this_thread::yield();
        });
        EXPECT_EQ(status, 42) << exitFromWork;
    }
}

TEST(Queue, WhatWasHandedOverIsDoneBeforeTheProcessEnds) {
    if (underThreadSanitizer) GTEST_SKIP();
    auto* const done = static_cast<std::atomic<int>*>(
        ::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const int status = inChild([&]() -> int {
        for (int i = 0; i < 100; ++i)
            Queue::execute(false, [done] {
                Queue::execute(false, [done] { ++*done; });
                ++*done;
            });
        std::exit(42);
    });
    EXPECT_EQ(status, 42);
    EXPECT_EQ(*done, 200);
    ::munmap(done, sizeof *done);
}

TEST(Queue, CanBeWaitedFor) {
    std::atomic<int> done{0};
    std::atomic<bool> waitedWithin{true};
    for (int i = 0; i < 100; ++i)
        Queue::execute(false, [&] {
            Queue::execute(false, [&] { ++done; });
            waitedWithin = Queue::wait();
            throw std::runtime_error("which is dropped");
        });
    EXPECT_TRUE(Queue::wait());
    EXPECT_EQ(done, 100);
    EXPECT_FALSE(waitedWithin) << "work does not wait for itself";
    auto held = Queue::hold();
    EXPECT_FALSE(Queue::wait(0));
    held.reset();
    EXPECT_TRUE(Queue::wait(0));
}

TEST(CacheFolder, IsTheUsersUnlessTheApplicationChoosesAnother) {
    const char* before = std::getenv("XDG_CACHE_HOME");
    const std::string kept = before ? before : "";
    ::setenv("XDG_CACHE_HOME", "/somewhere/caches", 1);
    EXPECT_EQ(fu_getCacheFolderUrl(true)->path(), "/somewhere/caches");
    ::setenv("XDG_CACHE_HOME", "relative", 1);
    EXPECT_TRUE(fu_getCacheFolderUrl(true)->path().ends_with("/.cache"));
    {
        const CachesFolder chosen;
        EXPECT_EQ(fu_getCacheFolderUrl(true)->path(), chosen.path());
        EXPECT_NE(fu_getCacheFolderUrl(false)->path(), chosen.path());
    }
    EXPECT_TRUE(fu_getCacheFolderUrl(true)->path().ends_with("/.cache"));
    before ? ::setenv("XDG_CACHE_HOME", kept.c_str(), 1) : ::unsetenv("XDG_CACHE_HOME");
}

} // namespace
} // namespace pex
