#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <string_view>
#include <vector>

/// "; did you mean shrink?" for the candidate that a misspelt word is most like; empty where none is like it.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

/// The first word of those left over that looks like an option, with the nearest of the command's; empty
/// where there is none.
std::string unknownOption(const CLI::App& command);
