#pragma once

#include "peximage/platform/foundation/Reason.h"

#include <new>
#include <stdexcept>

namespace pex {

/// Gives what `work` gives. When memory runs out, gives the absent value of its type (false, null,
/// nothing) with a reason. For functions that must not throw.
template <class Work>
auto absentWithoutMemory(const Work& work) -> decltype(work()) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        giveReason(ReasonCode::outOfMemory, "out of memory");
    } catch (const std::length_error&) { // larger than a container can ever be
        giveReason(ReasonCode::outOfMemory, "out of memory");
    }
    return {};
}

} // namespace pex
