#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/codecs/ImageFormat.h"
#include "peximage/platform/codecs/ImageMetadata.h"
#include "peximage/platform/codecs/JpegOptions.h"
#include "peximage/platform/codecs/RepeatedEncoding.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/raster/CGImage.h"

#include <memory>
#include <optional>

namespace pex {

/// Encodes images. The colour profile is embedded unless it gives the colours of sRGB anyway. The bytes never
/// name an orientation that the pixels already have.
class PEX_EXPORT CGImageDestination {
  public:
    /// How a picture is written.
    struct Options {
        /// 0 … 1, 1 best. Formats without loss ignore it.
        double quality = 0.9;
        /// Pixels per inch to record; absent leaves the format's default. JPEG ignores it: its density is
        /// @{
        /// stamped into the finished bytes.
        std::optional<double> dpiWidth = {};
        std::optional<double> dpiHeight = {};
        /// @}
        /// Whether the opacity is written; if not, the picture is laid over white, as it always is for JPEG.
        bool keepsAlpha = true;
        /// HEIF without alpha: ten bits a component instead of eight.
        bool tenBits = false;
        /// Written as far as the format can hold it; orientation, sizes and resolution are set to the
        /// picture's.
        ImageMetadata metadata = {};
        /// How a JPEG is made.
        JpegOptions jpeg = {};
    };

    /// Whether this build can write the format.
    static bool writes(ImageFormat format);

    /// Absent when this build cannot write the format, when the picture is too large for it, or when its
    /// pixels cannot be had. Safe from any thread.
    static std::optional<Data> encode(const CGImage& image, ImageFormat format, const Options& options);

    /// For encoding one image at several qualities; that of the options makes no difference. What these have
    /// in common is done once where the format allows it (JPEG). Null where `encode` gives nothing. Safe from
    /// any thread.
    static std::unique_ptr<RepeatedEncoding> repeated(const CGImage& image, ImageFormat format,
                                                      const Options& options);
};

} // namespace pex
