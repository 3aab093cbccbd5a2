#pragma once

#include <string>
#include <vector>

/// What every command understands.
struct Settings {
    std::vector<std::string> inputs;
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    int jobs = 0; // 0: as many as there are cores
};

/// A command line that asks for something impossible; told with a hint, exit status 2.
struct UsageError {
    std::string message;
};

/// Work on one file that did not succeed; told in one line, exit status 1.
struct Failure {
    std::string message;
};

/// The failure of what the library has just given nothing for: the reason that it told since
/// `forgetReason`, else the given words.
Failure libraryFailure(const std::string& otherwise);
void forgetReason();
