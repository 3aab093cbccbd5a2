#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"

#include <chrono>
#include <optional>
#include <vector>

namespace pex {

/// Makes the folder with its parents; those in the user's data and caches folders are for the user alone.
/// True when it is there afterwards.
PEX_EXPORT bool fu_createFolder(const URL& url);

/// True when a regular file is there (a link to one counts) that holds at least `minSizeInKB` × 1000 bytes;
/// absent: any size. Folders and devices are no files here.
PEX_EXPORT bool fu_fileExists(const URL& url, std::optional<double> minSizeInKB = {});

/// Deletes a file (a link itself, not what it names); a missing one is no failure. Never deletes a folder or
/// a device. True when no such file is left.
PEX_EXPORT bool fu_deleteFile(const URL& url);

/// When the file's bytes were last changed; absent when there is none.
PEX_EXPORT std::optional<std::chrono::system_clock::time_point> fu_modificationDate(const URL& url);

/// The regular files in a folder and in the folders inside it, sorted; links are neither listed nor followed.
/// As many as can be read, none for what is no folder.
PEX_EXPORT std::vector<URL> fu_filesInFolder(const URL& folder);

/// The folder for caches: with `user` the calling user's (`userCachesFolder`), else the one of all users,
/// which an application can rarely write to. It need not exist. Absent when the user has no home.
PEX_EXPORT std::optional<URL> fu_getCacheFolderUrl(bool user);

} // namespace pex
