#include "peximage/platform/varda/XMain.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

namespace pex {
namespace {

class XMainTest : public testing::Test {
  protected:
    void SetUp() override { XMain::becomeMain(); }
    void TearDown() override { XMain::setWakeUp({}); }
};

TEST_F(XMainTest, RunsAtOnceOnTheMainThread) {
    std::string order;
    XMain::execute([&] { XMain::sync([&] { order += 'a'; }); });
    order += 'b';
    EXPECT_EQ(order, "ab");
    EXPECT_EQ(XMain::drain(), 0U);
}

TEST_F(XMainTest, QueuesFromOtherThreadsInOrder) {
    std::string order;
    std::atomic<int> wakeUps{0};
    XMain::setWakeUp([&] { ++wakeUps; });
    std::thread([&] {
        EXPECT_FALSE(XMain::isMain());
        XMain::execute([&] { order += 'a'; });
        XMain::execute([&] {
            order += 'b';
            EXPECT_EQ(XMain::drain(), 1U); // a block that drains lets the next one run within it
            order += 'd';
        });
        XMain::execute([&] { order += 'c'; });
        EXPECT_EQ(XMain::drain(), 0U);
    }).join();
    EXPECT_EQ(order, "");
    XMain::drain();
    EXPECT_EQ(order, "abcd");
    EXPECT_EQ(wakeUps, 3);
}

TEST_F(XMainTest, SyncWaitsUntilTheBlockRan) {
    bool ranOnMain = false;
    std::atomic<bool> returned{false};
    std::thread other([&] {
        XMain::sync([&] { ranOnMain = XMain::isMain() && !returned; });
        returned = true;
    });
    XMain::waitAndDrain();
    other.join();
    EXPECT_TRUE(ranOnMain);
    EXPECT_TRUE(returned);
}

TEST_F(XMainTest, WhatABlockThrowsReachesWhoWaitsForIt) {
    std::atomic<bool> isDone{false};
    std::thread other([&] {
        XMain::execute([] { throw std::runtime_error("which is dropped"); });
        EXPECT_THROW(XMain::sync([] { throw std::runtime_error("which comes back"); }), std::runtime_error);
        XMain::sync({});
        XMain::execute({});
        isDone = true;
    });
    while (!isDone) {
        XMain::drain();
        std::this_thread::yield();
    }
    other.join();
}

} // namespace
} // namespace pex
