#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <cstdint>

namespace pex {

/// Runs the program `CLIImageResizer`, which an application ships at "Contents/Frameworks/PexImage.framework/
/// Versions/A/Resources/CLIImageResizer" in its bundle (`Bundle::main`). A value without content.
struct PEX_EXPORT PexCLIImageResizer {
    struct To {
        URL to;
        /// Of the longer side, in pixels.
        std::int64_t maxSize;
    };
    /// Lets the program resize a file, waits for it, deletes the file at the destination, and tells whether
    /// what the program printed ends with "DONE", in whatever case. When there is no such program: false, and
    /// the destination is as it was. Any thread.
    static bool resize(const URL& source, const To& destination);
};

} // namespace pex
