#pragma once

#include <cstddef>

/// While it lives, no piece of memory of at least so many bytes can be had by `new`, on any thread. Pixel
/// memory does not come from there. One at a time.
class FailingMemory {
  public:
    explicit FailingMemory(std::size_t bytes);
    ~FailingMemory();
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    /// How many times it has failed.
    static long failures();
};
