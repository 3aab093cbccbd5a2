#pragma once

#include <string>
#include <vector>

/// The file of the icon that comes first among `names`, in the user's theme or one of those that stand in for
/// it, in the size nearest to `side` pixels; empty when no theme has one.
std::string findThemeIcon(const std::vector<std::string>& names, int side);
