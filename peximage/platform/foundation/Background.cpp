#include "peximage/platform/foundation/Background.h"

#include "peximage/platform/foundation/Workers.h"

namespace pex {

void Background::await_suspend(std::coroutine_handle<> suspended) const {
    Workers::run([suspended] { suspended.resume(); });
}

} // namespace pex
