#pragma once

#include <string>

namespace pex {

/// Makes a folder with its parents. True when it is there afterwards, else a reason is given. New folders
/// in the user's data or caches folder, these two included, are accessible to the user alone; others have
/// the usual permissions of the process.
bool makeFolders(const std::string& path);

} // namespace pex
