#pragma once

#include "Settings.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <variant>
#include <vector>

/// What came of one input: a line for people (or several), and the same for programs.
struct Result {
    std::string line;            // empty: nothing
    nlohmann::ordered_json json; // of a list each element is a value of its own
    /// What somebody should know of it, on standard error.
    std::vector<std::string> notes = {};
    /// The same of what is missing: the input then counts as failed.
    std::vector<std::string> problems = {};
    /// For the totals: what was written, of how many bytes.
    int files = 0;
    long long bytesBefore = 0, bytesAfter = 0;
    bool leftOut = false; // by --skip-existing
};
using Outcome = std::variant<Result, Failure>;

/// Does the work for every input, several at once, and reports in the order of the inputs: a line each on
/// standard output, or with --json one list. A failure is one line on standard error, and does not keep the
/// others from being done. Gives the exit status.
int runBatch(const Settings& settings, const std::function<Outcome(std::size_t index)>& work);
