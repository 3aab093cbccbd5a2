#include "peximage/platform/foundation/Folders.h"

#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/UserFolders.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>

namespace pex {
namespace {

namespace fs = std::filesystem;

bool isInside(const std::string& path, const std::optional<URL>& folder) {
    return folder && (path + '/').starts_with(folder->path() + '/');
}

mode_t modeOf(const std::string& path) {
    constexpr mode_t userAlone = 0700, asOthers = 0777;
    return isInside(path, userDataFolder()) || isInside(path, userCachesFolder()) ? userAlone : asOthers;
}

bool isFolder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

/// False with errno set.
bool makeOne(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) == 0) return true;
    const int error = errno;
    if (error != ENOENT && isFolder(path)) return true;
    const std::string parent = fs::path(path).parent_path().string();
    if (error == ENOENT && !parent.empty() && parent != path)
        return makeOne(parent, mode) && (::mkdir(path.c_str(), mode) == 0 || isFolder(path));
    errno = error == EEXIST ? ENOTDIR : error;
    return false;
}

} // namespace

bool makeFolders(const std::string& path) {
    if (isFolder(path) || makeOne(path, modeOf(path))) return true;
    const int error = errno;
    giveWritingReason(error);
    errno = error;
    return false;
}

} // namespace pex
