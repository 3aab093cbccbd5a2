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
    /// Pixels that one byte of a file may stand for, in pictures of more than 2^26 pixels. Default 2^14: the
    /// emptiest page still keeps to it, a few bytes that ask for a gigabyte do not.
    std::int64_t maxPixelsPerByte = std::int64_t{1} << 14;
    /// Bytes that the pixels of all pictures in the process may take together, those of intermediate results
    /// included; what would go over it is absent, for the reason `outOfMemory`. 0, the default, stands for
    /// half of the memory that the machine, or the process's container, has.
    std::size_t maxPixelMemory = 0;
    /// Bytes of one encoded file. Default 2 GB.
    std::size_t maxSourceBytes = std::size_t{1} << 31;
    /// Pages of one document. Default 10,000.
    int maxPages = 10'000;
    /// Bytes of one piece of metadata, such as a colour profile. Default 16 MB.
    std::size_t maxMetadataBytes = std::size_t{16} << 20;

    /// Seconds that the decoding of one picture may take; one that takes longer is absent, and `lastReason`
    /// says `timedOut`. Default 60. What decodes in one piece (HEIF, AVIF, GIF, TIFF and WebP) is asked
    /// before it begins.
    double maxDecodingSeconds = 60;
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
    /// True when a picture of this size, of at least a pixel, may stand in so few bytes; else the reason is
    /// `overLimit`.
    bool allowsInBytes(std::int64_t width, std::int64_t height, std::size_t bytes) const;
    /// True when a file of so many bytes may be opened; else the reason is `overLimit`.
    bool allowsBytes(std::size_t bytes) const;
};

} // namespace pex
