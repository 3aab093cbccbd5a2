#include "peximage/platform/varda/FileUtilities.h"

#include "peximage/platform/foundation/UserFolders.h"

#include <filesystem>

namespace pex {
namespace fs = std::filesystem;

bool fu_createFolder(const URL& url) {
    if (!url.isFileURL()) return false;
    std::error_code error;
    fs::create_directories(url.path(), error);
    return fs::is_directory(url.path(), error);
}

bool fu_fileExists(const URL& url, std::optional<double> minSizeInKB) {
    std::error_code error;
    if (!url.isFileURL() || !fs::is_regular_file(url.path(), error)) return false;
    if (!minSizeInKB) return true;
    const auto bytes = fs::file_size(url.path(), error);
    return !error && static_cast<double>(bytes) >= *minSizeInKB * 1000;
}

bool fu_deleteFile(const URL& url) {
    if (!url.isFileURL()) return false;
    std::error_code error;
    const fs::file_status status = fs::symlink_status(url.path(), error);
    if (status.type() == fs::file_type::not_found) return true;
    if (!fs::is_regular_file(status) && !fs::is_symlink(status)) return false;
    return fs::remove(url.path(), error);
}

std::optional<URL> fu_getCacheFolderUrl(bool user) {
    return user ? userCachesFolder() : URL::fromPath("/var/cache");
}

} // namespace pex
