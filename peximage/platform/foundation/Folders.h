#pragma once

#include <string>

namespace pex {

/// Makes a folder with its parents. True when it is there afterwards, else the reason is given. New folders
/// that lie in the user's data or caches folder, or are these, are for the user alone; others are as open as
/// the process makes its files.
bool makeFolders(const std::string& path);

} // namespace pex
