#pragma once

#include "peximage/platform/foundation/Reason.h"

#include <new>
#include <stdexcept>

namespace pex {

/// What `work` gives, or its type's word for absent (false, null, nothing), with the reason, when memory runs
/// out on the way: for the borders that nothing may throw across.
template <class Work>
auto absentWithoutMemory(const Work& work) -> decltype(work()) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        giveReason(ReasonCode::outOfMemory, "out of memory");
    } catch (const std::length_error&) { // more than a container can ever hold
        giveReason(ReasonCode::outOfMemory, "out of memory");
    }
    return {};
}

} // namespace pex
