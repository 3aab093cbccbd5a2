#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/toolkit/NSImage.h"

#include <memory>
#include <string>

namespace pex {

/// The desktop around the application. Any thread.
class PEX_EXPORT NSWorkspace {
  public:
    /// The one that there is.
    static const NSWorkspace& shared();

    /// Options of `icon`.
    struct ForFile {
        /// A path; nothing need lie there.
        std::string path;
    };
    /// The desktop's icon for a file or folder, or, where it is not there, for a file of that name; a plain
    /// sheet of paper where the desktop has none. Its representations are square, as large as asked for as
    /// far as the desktop's icon comes in that size. Never null.
    std::shared_ptr<NSImage> icon(const ForFile& file) const;
};

} // namespace pex
