#pragma once

#include <new>

namespace pex {

/// What `work` gives, or its type's word for absent (false, null, nothing) when memory runs out on the way:
/// for the borders that nothing may throw across.
template <class Work>
auto absentWithoutMemory(const Work& work) -> decltype(work()) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace pex
