#include "peximage/platform/varda/FileUtilities.h"

#include "peximage/platform/foundation/Folders.h"
#include "peximage/platform/foundation/UserFolders.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>

namespace pex {
namespace fs = std::filesystem;

bool fu_createFolder(const URL& url) { return url.isFileURL() && makeFolders(url.path()); }

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

std::optional<std::chrono::system_clock::time_point> fu_modificationDate(const URL& url) {
    using namespace std::chrono;
    struct stat info {};
    if (!url.isFileURL() || ::stat(url.path().c_str(), &info) != 0) return std::nullopt;
    const auto sinceEpoch = seconds(info.st_mtim.tv_sec) + nanoseconds(info.st_mtim.tv_nsec);
    return system_clock::time_point(duration_cast<system_clock::duration>(sinceEpoch));
}

std::vector<URL> fu_filesInFolder(const URL& folder) {
    std::vector<std::string> paths;
    std::error_code error, ignored;
    const auto options = fs::directory_options::skip_permission_denied;
    if (!folder.isFileURL()) return {};
    for (fs::recursive_directory_iterator entry(folder.path(), options, error), end; !error && entry != end;
         entry.increment(error)) {
        if (fs::is_regular_file(entry->symlink_status(ignored))) paths.push_back(entry->path().string());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<URL> files;
    files.reserve(paths.size());
    for (const std::string& path : paths)
        files.push_back(URL::fromPath(path));
    return files;
}

std::optional<URL> fu_getCacheFolderUrl(bool user) {
    return user ? userCachesFolder() : URL::fromPath("/var/cache");
}

} // namespace pex
