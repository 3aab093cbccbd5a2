#include "peximage/platform/foundation/Background.h"

#include <oneapi/tbb/task_arena.h>

namespace pex {

void Background::await_suspend(std::coroutine_handle<> suspended) const {
    oneapi::tbb::this_task_arena::enqueue([suspended] { suspended.resume(); });
}

} // namespace pex
