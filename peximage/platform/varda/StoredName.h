#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// A relative path for any name, even an empty or very long one, or one with separators or control
/// characters. Letters, digits, '-', '_', and spaces and dots inside the name stay; every other byte
/// becomes '%' and two digits. A long name is split into folders that end in '+'. Different names have
/// different paths, and no name's path lies inside another one's.
std::string storedPath(std::string_view name);

/// The name that the path stands for; absent when no name has it.
std::optional<std::string> nameOfStoredPath(std::string_view path);

} // namespace pex
