#pragma once

#include "Settings.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageFormat.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// Where the result of one input goes, and as what. The path "-" is standard output.
struct Destination {
    std::filesystem::path path;
    pex::ImageFormat format = pex::ImageFormat::jpeg;

    bool isStandardOutput() const { return path == "-"; }
};

/// A destination for every input. One input and an `output` that is no folder: that file, in the format of
/// its extension; where it has none, in `format`. Else `output` is a folder, and every result lies there at
/// its input's place, in `format` where given, else in the input's; an input whose format cannot be written
/// gets a problem. Throws UsageError when two results would meet or no format is told.
std::vector<Destination> planDestinations(Settings& settings, const std::string& output,
                                          const std::optional<std::string>& format);

/// The format of an extension or of --format; throws UsageError where it cannot be written. `where` is what
/// named it.
pex::ImageFormat writableFormat(const std::string& extension, const std::string& where);

/// The header of the input's file, of its page.
std::optional<pex::CGImageSource> openSource(const Input& input);

/// The image in a file, or one line that says why there is none.
std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const Input& input);

/// Puts bytes in their place, whole or not at all. Absent when all went well.
std::optional<Failure> writeFile(const std::filesystem::path& path, const pex::Data& bytes);
