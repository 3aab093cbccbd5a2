#pragma once

#include "Batch.h"
#include "Files.h"
#include "Options.h"

/// Writes the image to its destination, whole or not at all, and tells what was written.
Outcome saveImage(const std::string& input, const std::shared_ptr<pex::PexImage>& image,
                  const Destination& destination, const WritingOptions& options);

/// The same of a file whose bytes are there already.
Outcome saveBytes(const std::string& input, const pex::Data& bytes, pex::CGSize size,
                  const std::filesystem::path& path);

/// `planDestinations`; throws UsageError, too, where a byte budget goes with another format than JPEG.
std::vector<Destination> planResults(const Settings& settings, const WritingOptions& options);

/// Opens every input, hands it to `change` and writes what that gives; a null image is the failure
/// `changeFailed`.
int runChanging(
    const Settings& settings, const WritingOptions& options,
    const std::function<std::shared_ptr<pex::PexImage>(const std::shared_ptr<pex::PexImage>&)>& change,
    const std::string& changeFailed);
