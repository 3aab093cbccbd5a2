#pragma once

#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/toolkit/NSScreen.h"
#include "peximage/platform/varda/Queue.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Collects what the library prints while it lives.
class CapturedLines {
  public:
    CapturedLines() {
        pex::diagnostics::setSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~CapturedLines() { pex::diagnostics::resetSink(); }
    CapturedLines(const CapturedLines&) = delete;
    CapturedLines& operator=(const CapturedLines&) = delete;

    std::vector<std::string> lines;
};

/// Runs `check(scale)` on a screen of one pixel a point and on one of two.
template <class Check>
void onScreensOfOneAndTwo(Check check) {
    for (const double scale : {1., 2.}) {
        pex::NSScreen::setScreens({{scale}});
        check(scale);
    }
    pex::NSScreen::setScreens({});
}

/// Background work is kept until `run`, while it lives.
class Gathered {
  public:
    Gathered() {
        pex::Queue::setExecutor([this](std::function<void()> work) { works_.push_back(std::move(work)); });
    }
    ~Gathered() { pex::Queue::setExecutor({}); }
    Gathered(const Gathered&) = delete;
    Gathered& operator=(const Gathered&) = delete;

    /// Runs what was handed over, also what this itself hands over.
    void run() {
        while (!works_.empty()) {
            const auto works = std::exchange(works_, {});
            for (const auto& work : works)
                work();
        }
    }

  private:
    std::vector<std::function<void()>> works_;
};

/// Calls the work on so many threads at the same time, with their numbers, and returns when all have ended.
inline void onThreads(unsigned count, const std::function<void(unsigned thread)>& work) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < count; ++i)
        threads.emplace_back(work, i);
}

/// The text with the first occurrence of `from`, which must be there, replaced.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return text.replace(at, from.size(), to);
}
