#pragma once

#include "peximage/platform/Export.h"

#include <cstddef>
#include <cstdint>

namespace pex {

/// What the library is willing to open; past a limit the result is absent. The defaults suit a desktop
/// application; a server that opens strangers' files may set tighter ones.
struct PEX_EXPORT ImageLimits {
    /// Width × height of one picture. Default 2^28, which is 1 GB of pixels.
    std::int64_t maxPixels = std::int64_t{1} << 28;
    /// Bytes of one encoded file. Default 2 GB.
    std::size_t maxSourceBytes = std::size_t{1} << 31;
    /// Pages of one document. Default 10,000.
    int maxPages = 10'000;
    /// Bytes of one piece of metadata, such as a colour profile. Default 16 MB.
    std::size_t maxMetadataBytes = std::size_t{16} << 20;

    /// Seconds that the drawing of one page of a document may take; a page that takes longer has no image,
    /// and `lastReason` says `timedOut`. Default 60.
    double maxDrawingSeconds = 60;

    /// The limits in force for the whole process. Safe from any thread.
    /// @{
    static ImageLimits current();
    static void setCurrent(const ImageLimits& limits);
    /// @}

    /// True when a picture of this size may be opened: both sides at least 1 and the limit kept. Else the
    /// reason is `overLimit`, with the numbers, or `damaged`.
    bool allows(std::int64_t width, std::int64_t height) const;
    /// True when a file of so many bytes may be opened; else the reason is `overLimit`.
    bool allowsBytes(std::size_t bytes) const;
};

} // namespace pex
