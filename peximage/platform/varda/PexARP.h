#pragma once

#include <utility>

namespace pex {

/// Runs work that makes many objects which nobody needs afterwards.
struct PexARP {
    /// Runs the block once, before returning, and gives what it gives: here everything is released by its
    /// last owner anyway.
    template <class Block>
    static decltype(auto) perform(Block&& block) {
        return std::forward<Block>(block)();
    }
};

} // namespace pex
