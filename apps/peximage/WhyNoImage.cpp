#include "WhyNoImage.h"

#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageLimits.h"
#include "peximage/platform/toolkit/NSPDFImageRep.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

bool needsPassword(const std::string& path) {
    const auto bytes =
        pex::Data::contentsOf(pex::URL::fromPath(path), pex::ImageLimits::current().maxSourceBytes);
    return bytes && pex::NSPDFImageRep::needsPassword(*bytes);
}

} // namespace

Failure whyNoImage(const std::string& path) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    if (!fs::exists(status)) return {"no such file"};
    if (fs::is_directory(status)) return {"is a folder"};
    if (!fs::is_regular_file(status)) return {"is no regular file"};
    if (::access(path.c_str(), R_OK) != 0) return {std::string("cannot be read: ") + std::strerror(errno)};
    if (fs::file_size(path, ignored) == 0) return {"is empty"};
    const auto format = pex::CGImageSource::formatOf(pex::URL::fromPath(path));
    if (format && !pex::CGImageSource::reads(*format))
        return {"built without " + std::string(pex::displayName(*format))};
    if (format == pex::ImageFormat::pdf && needsPassword(path)) return {"needs a password"};
    return {"not an image"};
}
