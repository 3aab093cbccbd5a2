#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <cstdint>

namespace pex {

/// Runs the program `CLIImageResizer`, which an application ships at "Contents/Frameworks/PexImage.framework/
/// Versions/A/Resources/CLIImageResizer" in its bundle (`Bundle::main`). A value without content.
struct PEX_EXPORT PexCLIImageResizer {
    /// Where the result goes, and how large it may be.
    struct To {
        /// A local file, which the program is told to write; it is deleted when the program has ended.
        URL to;
        /// The longer side, in pixels.
        std::int64_t maxSize;
    };
    /// Runs the program on a file and waits for it; then deletes the file at the destination. True when what
    /// the program printed ends with "DONE", in upper or lower case. False, with the destination untouched,
    /// when there is no such program. Any thread.
    static bool resize(const URL& source, const To& destination);
};

} // namespace pex
