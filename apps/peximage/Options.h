#pragma once

#include "Files.h"
#include "Settings.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>

/// --json, --quiet, --verbose.
void addReportOptions(CLI::App& command, Settings& settings);
/// INPUT… and what every command understands.
void addCommonOptions(CLI::App& command, Settings& settings);

/// -o and how results are written.
struct WritingOptions {
    std::string output;
    std::optional<std::string> format;
    std::optional<double> quality;
    std::optional<int> dpi;
    std::optional<long long> maxBytes;
};

enum class QualityOption { yes, no };

/// Adds -o, --format, --dpi, --max-bytes and, where it makes sense, --quality.
void addWritingOptions(CLI::App& command, WritingOptions& options, QualityOption quality);

/// A size with a unit, as an option.
CLI::Option* addByteSize(CLI::App& command, const std::string& name, std::optional<long long>& target,
                         const std::string& help);
