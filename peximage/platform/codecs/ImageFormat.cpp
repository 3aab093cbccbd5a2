#include "peximage/platform/codecs/ImageFormat.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace pex {

std::optional<ImageFormat> imageFormatForExtension(std::string_view extension) {
    std::string lower(extension);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const auto& names : imageFormats) {
        if (std::find(names.extensions.begin(), names.extensions.end(), lower) != names.extensions.end())
            return names.format;
    }
    return std::nullopt;
}

} // namespace pex
