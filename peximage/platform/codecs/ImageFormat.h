#pragma once

#include "peximage/platform/Export.h"

#include <array>
#include <optional>
#include <string_view>

namespace pex {

/// The file formats that are told apart. Whether one can be read or written is asked of `CGImageSource` and
/// `CGImageDestination`.
enum class ImageFormat { jpeg, png, tiff, webp, heif, avif, gif, bmp, pdf };

/// What people and file names call a format.
struct ImageFormatNames {
    /// The format itself.
    ImageFormat format;
    std::string_view name;                      ///< As people say it: "JPEG".
    std::array<std::string_view, 2> extensions; ///< Lower case, the usual one first.
};

/// All formats, a line each.
inline constexpr std::array imageFormats{
    ImageFormatNames{ImageFormat::jpeg, "JPEG", {"jpg", "jpeg"}},
    ImageFormatNames{ImageFormat::png, "PNG", {"png", "png"}},
    ImageFormatNames{ImageFormat::tiff, "TIFF", {"tif", "tiff"}},
    ImageFormatNames{ImageFormat::webp, "WebP", {"webp", "webp"}},
    ImageFormatNames{ImageFormat::heif, "HEIF", {"heic", "heif"}},
    ImageFormatNames{ImageFormat::avif, "AVIF", {"avif", "avif"}},
    ImageFormatNames{ImageFormat::gif, "GIF", {"gif", "gif"}},
    ImageFormatNames{ImageFormat::bmp, "BMP", {"bmp", "dib"}},
    ImageFormatNames{ImageFormat::pdf, "PDF", {"pdf", "ai"}},
};

/// The format's name as people say it: "JPEG".
constexpr std::string_view displayName(ImageFormat format) {
    for (const auto& names : imageFormats) {
        if (names.format == format) return names.name;
    }
    return {};
}

/// The format that a file name's extension stands for, whatever its case; absent for an unknown one.
PEX_EXPORT std::optional<ImageFormat> imageFormatForExtension(std::string_view extension);

} // namespace pex
