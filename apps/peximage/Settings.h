#pragma once

#include "peximage/platform/foundation/Reason.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// One thing to work on.
struct Input {
    /// As it is told.
    std::string name;
    /// As it is opened.
    std::string path;
    /// Where its result lies in a folder, under the input's own name.
    std::filesystem::path place;
    /// Why nothing can be done with it; empty where something can.
    std::string problem = {};
    /// Which page or frame of the file, from 0; absent where none was asked for, which takes the first.
    std::optional<int> page = {};
    pex::ReasonCode problemCode = pex::ReasonCode::badArgument;

    /// As people are told: the name, and the page that was asked for.
    std::string shownName() const { return page ? name + " page " + std::to_string(*page + 1) : name; }
};

/// What every command understands.
struct Settings {
    /// Files, folders, patterns and "-", as they were named.
    std::vector<std::string> arguments;
    /// A file of further names; each ends with its line, or with a NUL.
    std::string filesFrom;
    bool endedByNul = false;
    /// Folders with what is in their folders.
    bool recursive = false;
    /// The page or frame of each file that is meant, counted from 1, or all of them.
    std::optional<int> page;
    bool allPages = false;
    /// What all of that stands for; see `expandInputs`.
    std::vector<Input> inputs;
    /// There may be several inputs, so that results go into a folder, whatever its name looks like.
    bool intoFolder = false;

    bool json = false;
    bool quiet = false;
    bool verbose = false;
    /// A last line that sums up, where there are several inputs.
    bool totals = false;
    int jobs = 0; // 0: as many as there are cores
};

/// A command line that asks for something impossible; told with a hint, exit status 2.
struct UsageError {
    std::string message;
};

/// Work on one file that did not succeed; told in one line, exit status 1.
struct Failure {
    std::string message;
    pex::ReasonCode code = pex::ReasonCode::none;
};

/// The failure of what the library has just given nothing for: the reason that it told since
/// `forgetReason`, else the given words.
Failure libraryFailure(const std::string& otherwise);
void forgetReason();
