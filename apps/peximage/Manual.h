#pragma once

#include <CLI/CLI.hpp>

#include <string>

/// Writes man pages, completions for three shells and the README's table of commands into a folder, all made
/// of the program's own definitions: man1/peximage.1, man1/peximage-COMMAND.1, peximage.bash, _peximage,
/// peximage.fish and commands.md. Gives the exit status.
int writeManual(const CLI::App& program, const std::string& folder);
