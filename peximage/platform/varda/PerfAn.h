#pragma once

#include "peximage/platform/Export.h"

#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// A performance timer: named stretches of work, measured from `start` to `end` and summed up over the life
/// of the process. Safe from any thread; stretches of one thread may nest.
class PEX_EXPORT PerfAn {
  public:
    struct Measure {
        std::string label;
        long calls = 0;
        double seconds = 0;
    };

    /// Begins a stretch on this thread.
    static void start(std::string_view label);
    /// Ends the stretch that this thread began last; without one it does nothing.
    static void end();

    /// What was measured so far, in the order in which the labels first ended.
    static std::vector<Measure> measures();
    static void reset();
};

} // namespace pex
