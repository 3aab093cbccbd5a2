#pragma once

#include "Options.h"
#include "peximage/platform/codecs/CGImageSource.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What a result takes over from the file that it is made of, beside pixels.
struct Origin {
    pex::ImageMetadata metadata = {};
    /// Pixels an inch, as far as a result can state them.
    std::optional<int> dpi = {};
    std::optional<std::filesystem::file_time_type> time = {};
    /// What of the metadata is lost, and why.
    std::vector<std::string> notes = {};
};

/// As the options want it; reads the file's header.
Origin originOf(const Input& input, const WritingOptions& options);
/// The same of a file whose header is read already.
Origin originOf(const Input& input, const pex::CGImageSource& source, const WritingOptions& options);
/// The same, without a time.
Origin originOf(const pex::CGImageSource& source, const WritingOptions& options);

/// What to tell where a file has more pages than the one that is read, and nobody chose it.
std::optional<std::string> pagesLeftOut(const Input& input, const pex::CGImageSource& source);

/// Leaves out what the format cannot hold, and of a byte budget's half what goes beyond it.
Origin fitted(Origin origin, pex::ImageFormat format, const WritingOptions& options);
