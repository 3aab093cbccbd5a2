#include "peximage/platform/foundation/Task.h"

#include "peximage/platform/foundation/ThreadPool.h"
#include "peximage/platform/foundation/WorkState.h"

namespace pex::detail {

void TaskEnding::keepReason() noexcept {
    if (!lastReason()) return;
    try {
        reason_ = std::make_unique<const Reason>(lastReason());
    } catch (const std::bad_alloc&) { // the result says enough
    }
}

void TaskEnding::tell() const {
    if (reason_) giveReason(*reason_);
    if (!thrown_) return;
    try {
        std::rethrow_exception(thrown_);
    } catch (const std::bad_alloc&) {
        tellOutOfMemory();
    } catch (const WorkStopped&) {
        giveReason(ReasonCode::cancelled, "cancelled");
    }
}

void tellOutOfMemory() noexcept { giveReason(ReasonCode::outOfMemory, "out of memory"); }

TaskEnd::TaskEnd() : pool_(ThreadPool::ofThisThread()) {}

void TaskEnd::signal() {
    done_ = true;
    if (pool_ != nullptr)
        pool_->lookAgain();
    else
        done_.notify_all();
}

void TaskEnd::wait() {
    if (pool_ != nullptr)
        pool_->waitFor(done_);
    else
        done_.wait(false);
}

EndSignal signalWhenResumed(std::shared_ptr<TaskEnd> end) {
    end->signal();
    co_return;
}

} // namespace pex::detail
