#pragma once

#include "Settings.h"

#include <filesystem>
#include <string>

/// Fills `settings.inputs` with what the arguments and the list of names stand for, in their order: a file
/// for itself; a folder for the pictures in it, sorted, with `recursive` also those below, at their places
/// below it; a pattern that is no file for the files that it matches; "-" for standard input, read to its
/// end. Of several folders each keeps its own name in its pictures' places where they are searched to the
/// bottom. `leftOut`, the results' folder, is not searched. What cannot be read becomes an input with a
/// problem.
void expandInputs(Settings& settings, const std::filesystem::path& leftOut = {});

/// A single file or "-".
Input inputNamed(const std::string& word);

/// Takes the last argument out: what a command needs besides its inputs. Throws UsageError with the given
/// words where nothing else is left to work on.
Input takeLast(Settings& settings, const std::string& otherwise);
