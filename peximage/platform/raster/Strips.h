#pragma once

#include <functional>

namespace pex {

/// Cuts the rows 0 … height − 1 into strips and calls `work(begin, end)` for each, on all cores; returns when
/// all are done. A strip is small enough that its rows stay in a core's cache between two steps of the work,
/// and what it holds does not depend on the number of cores. `rows` is the height of a strip.
void forEachStrip(int height, const std::function<void(int begin, int end)>& work, int rows = 32);

/// The same for work that needs memory: `slot`, below `Workers::mostCount()`, is one thread's during the
/// call.
void forEachStripInSlots(int height, const std::function<void(int begin, int end, int slot)>& work,
                         int rows = 32);

} // namespace pex
