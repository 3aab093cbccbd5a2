#pragma once

#include "peximage/platform/Export.h"

#include <vector>

namespace pex {

/// A screen that pictures are shown on. The library knows of none until the application declares them.
struct PEX_EXPORT NSScreen {
    /// Pixels per point.
    double backingScaleFactor = 1;

    /// The screens declared last; none at first. Safe from any thread.
    static std::vector<NSScreen> screens();
    /// Declares all screens there are, in place of those declared before. Safe from any thread.
    static void setScreens(std::vector<NSScreen> screens);

    /// The largest backing scale of all screens, and at least 1: 1 without screens, and a scale that is not a
    /// number counts for nothing.
    static double largestBackingScaleFactor();
};

} // namespace pex
