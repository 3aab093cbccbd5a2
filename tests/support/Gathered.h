#pragma once

#include "peximage/platform/varda/Queue.h"

#include <functional>
#include <utility>
#include <vector>

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
