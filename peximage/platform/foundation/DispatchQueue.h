#pragma once

#include "peximage/platform/Export.h"

#include <functional>
#include <memory>
#include <string>

namespace pex {

/// A serial queue: blocks handed to it run one after the other, in the order they came in. A forked child has
/// none of its parent's blocks.
class PEX_EXPORT DispatchQueue {
  public:
    /// The label tells people which queue it is.
    explicit DispatchQueue(std::string label = {});
    /// Waits for the blocks that are still queued.
    ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    /// Runs the block on this thread and returns when it is done; throws what it throws. From within a block
    /// of this queue it runs at once.
    void sync(const std::function<void()>& block);
    /// Queues the block for the queue's own thread, which is started by the first such block, and returns.
    /// What the block throws is dropped. Where no thread can be had, those who use the queue run it.
    void async(std::function<void()> block);

    /// What the queue was named.
    const std::string& label() const { return label_; }

  private:
    struct State;
    std::string label_;
    std::unique_ptr<State> state_;
};

} // namespace pex
