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
    /// What was measured under one label.
    struct Measure {
        /// The label given to `start`.
        std::string label;
        /// How many stretches ended.
        long calls = 0;
        /// Their times together.
        double seconds = 0;
    };

    /// Begins a stretch on this thread.
    static void start(std::string_view label);
    /// Ends the stretch that this thread began last; without one it does nothing.
    static void end();

    /// What was measured so far, in the order in which the labels first ended.
    static std::vector<Measure> measures();
    /// Forgets what was measured.
    static void reset();
};

} // namespace pex
