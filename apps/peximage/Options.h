#pragma once

#include "Files.h"
#include "Settings.h"
#include "peximage/platform/codecs/JpegOptions.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// --json, --quiet, --verbose.
void addReportOptions(CLI::App& command, Settings& settings);
/// INPUT… and what every command understands.
void addCommonOptions(CLI::App& command, Settings& settings);
/// --page, where pictures are read.
void addPageOption(CLI::App& command, Settings& settings);
/// -j and --threads.
void addWorkOptions(CLI::App& command, Settings& settings);

/// What of the metadata goes over to a result.
enum class MetadataChoice { keep, noLocation, none };

/// -o and how results are written.
struct WritingOptions {
    std::string output;
    std::optional<std::string> format;
    std::optional<double> quality;
    std::optional<int> dpi;
    std::optional<long long> maxBytes;
    /// Within a byte budget: rather than going below, the picture becomes smaller.
    double minQuality = 0.3;
    bool dryRun = false;       // nothing is written
    bool skipExisting = false; // nor is what is there and not older than its input
    bool force = false;        // an input of which something is missing may be replaced
    pex::JpegOptions jpeg;
    MetadataChoice metadata = MetadataChoice::keep;
    bool keepTime = false;
    /// The command is about transparency: a format that has none is worth a word.
    bool wantsAlpha = false;
};

enum class QualityOption { yes, no };

/// Adds --dry-run and --skip-existing.
void addRunOptions(CLI::App& command, WritingOptions& options);

/// Adds -o, --format, --dpi, --max-bytes, how a JPEG is made and, where it makes sense, --quality.
void addWritingOptions(CLI::App& command, WritingOptions& options, QualityOption quality);

/// Adds --metadata and --keep-time, for commands whose results are made of a photo.
void addMetadataOptions(CLI::App& command, WritingOptions& options);

/// Checks of an option's number that name the range, where it says something; they also refuse what is no
/// number.
std::function<std::string(const std::string&)> numberBetween(double least, double most);
std::function<std::string(const std::string&)> wholeBetween(std::int64_t least, std::int64_t most);
/// 0 to 1, with a hint for those who count to 100.
std::string checkQuality(const std::string& text);
/// No bound: as many as there are.
inline constexpr int anyWhole = std::numeric_limits<int>::max();

/// A number of pixels as an option: "2000" or "2000px".
CLI::Option* addPixels(CLI::App& command, const std::string& name, std::optional<int>& target,
                       const std::string& help);

/// A size with a unit, as an option.
CLI::Option* addByteSize(CLI::App& command, const std::string& name, std::optional<long long>& target,
                         const std::string& help);

/// An option of a form of its own: `parse` gives an optional value, and `what` names what it wants to see.
template <class T>
CLI::Option* addParsed(CLI::App& command, const std::string& name, const std::string& form,
                       const std::string& help, const std::string& what,
                       std::optional<T> (*parse)(std::string_view), std::optional<T>& target) {
    const auto read = [=, &target](const std::string& text) {
        target = parse(text);
        if (!target) throw CLI::ValidationError("'" + text + "' is not " + what);
    };
    return command.add_option_function<std::string>(name, read, help)->type_name(form);
}
