#include "peximage/platform/foundation/WorkControl.h"

#include "peximage/platform/foundation/WorkState.h"

#include <cstddef>
#include <new>
#include <utility>

namespace pex {
namespace {

using State = std::shared_ptr<const WorkState>;

alignas(State) constinit thread_local std::byte memoryOfState[sizeof(State)]{};
constinit thread_local bool hasState = false;

/// Never destroyed, since the C library ends the process where it lacks the memory to note a thread's
/// destructors. Nothing leaks: whoever sets a state puts back the one before it, at last the empty one.
State& workOfThisThread() noexcept {
    if (!hasState) ::new (memoryOfState) State;
    hasState = true;
    return *std::launder(reinterpret_cast<State*>(memoryOfState));
}

} // namespace

WorkControl::WorkControl(std::stop_token stop) : before_(workOfThisThread()) {
    try {
        workOfThisThread() =
            stop.stop_possible() ? std::make_shared<const WorkState>(WorkState{std::move(stop)}) : nullptr;
    } catch (const std::bad_alloc&) { // the work then goes on under the control that there was
    }
}

WorkControl::~WorkControl() { workOfThisThread() = std::move(before_); }

std::shared_ptr<const WorkState> currentWork() noexcept { return workOfThisThread(); }

SharedWork::SharedWork(std::shared_ptr<const WorkState> state) noexcept
    : before_(std::exchange(workOfThisThread(), std::move(state))) {}

SharedWork::~SharedWork() { workOfThisThread() = std::move(before_); }

std::function<void()> underCurrentWork(std::function<void()> work) {
    if (!workOfThisThread()) return work;
    return [control = workOfThisThread(), work = std::move(work)] {
        const SharedWork under(control);
        work();
    };
}

bool isWorkStopped() noexcept {
    const State& work = workOfThisThread();
    if (!work) return false;
    const auto end = work->end;
    return work->stop.stop_requested() ||
           (end != WorkState::Clock::time_point::max() && WorkState::Clock::now() >= end);
}

void endIfStopped() {
    if (isWorkStopped()) throw WorkStopped();
}

} // namespace pex
