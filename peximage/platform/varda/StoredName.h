#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pex {

/// A relative path that stands for any name, also an empty or a very long one, one with separators, dots or
/// control characters: letters, digits, '-', '_', spaces and dots inside stay, every other byte becomes '%'
/// and two digits, and a long name goes on in folders that end in '+'. Different names have different paths,
/// and no name's path lies inside another one's.
std::string storedPath(std::string_view name);

/// The name that the path stands for; absent when no name has it.
std::optional<std::string> nameOfStoredPath(std::string_view path);

} // namespace pex
