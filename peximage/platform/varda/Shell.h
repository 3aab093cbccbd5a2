#pragma once

#include "peximage/platform/Export.h"

#include <optional>
#include <string>
#include <vector>

namespace pex {

/// A program and what it is called with.
struct ShellCommand {
    /// The program's own path: no search, and no shell in between.
    std::string launchPath;
    /// Passed on as they are.
    std::vector<std::string> arguments;
};
/// Runs a program, with nothing on its standard input, and waits for it: its standard output as text, at most
/// the first 16 MB. Absent when it cannot be started. Any thread.
PEX_EXPORT std::optional<std::string> shell2(const ShellCommand& command);

} // namespace pex
