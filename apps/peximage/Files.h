#pragma once

#include "Settings.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/ImageFormat.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// Where the result of one input goes, and as what.
struct Destination {
    std::filesystem::path path;
    pex::ImageFormat format;
};

/// A destination for every input. One input that is no folder and an `output` that is none: that file, in the
/// format of its extension; where it has none, in `format`. Else `output` is a folder, and every result keeps
/// its input's base name, in `format` where given, else the input's. Throws UsageError when names collide or
/// no format is told.
std::vector<Destination> planDestinations(const std::vector<std::string>& inputs, const std::string& output,
                                          const std::optional<std::string>& format);

/// The image in a file, or one line that says why there is none.
std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const std::string& path);

/// Puts bytes in their place, whole or not at all. Absent when all went well.
std::optional<Failure> writeFile(const std::filesystem::path& path, const pex::Data& bytes);
