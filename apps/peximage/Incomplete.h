#pragma once

#include "Settings.h"
#include "peximage/image/PexImage.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What turned out to be missing of the pictures that the work on one input has opened. Each thread keeps
/// that of its own work.
namespace incomplete {

/// Forgets the work before.
void begin();
void addOpened(const Input& input, const std::shared_ptr<pex::PexImage>& image);

/// Looks at what was opened, now that a result was made of it. A failure when the result would replace an
/// input that is not whole.
std::optional<Failure> check(const std::filesystem::path& destination, bool force);

/// A line for each picture that `check` found not to be whole: "x.jpg: 37 % of the picture is missing".
const std::vector<std::string>& warnings();

} // namespace incomplete
