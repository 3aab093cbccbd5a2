#pragma once

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/WorkState.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

namespace pex {

/// Gives what `work` gives. When memory runs out or the work is stopped, gives the absent value of its type
/// (false, null, nothing) with a reason. For functions that must not throw.
template <class Work>
auto absentWithoutMemory(const Work& work) -> decltype(work()) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        giveReason(ReasonCode::outOfMemory, "out of memory");
    } catch (const std::length_error&) { // larger than a container can ever be
        giveReason(ReasonCode::outOfMemory, "out of memory");
    } catch (const WorkStopped&) {
        giveReason(ReasonCode::cancelled, "cancelled");
    }
    return {};
}

/// Throws `std::bad_alloc` unless so much memory can be had. Many another library crashes, waits for ever or
/// ends the process where a small piece is missing in its midst: it is called when there is likely to be
/// enough.
inline void expectMemory(std::size_t bytes) {
    const std::unique_ptr<void, decltype(&std::free)> memory(std::malloc(bytes), std::free);
    if (!memory) throw std::bad_alloc();
}

} // namespace pex
